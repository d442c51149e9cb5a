// Threads released at one moment into the same code, for the first calls of a
// process made by many threads at once.
#ifndef QUENDAL_TESTS_SUPPORT_THREADS_RELEASED_TOGETHER_H
#define QUENDAL_TESTS_SUPPORT_THREADS_RELEASED_TOGETHER_H

#include <pthread.h>

#include <thread>
#include <vector>

namespace QuendalTest {

// Starts count threads that wait for each other at a barrier and then run
// work(index); returns when all of them have ended.
template <class Work>
void RunReleasedTogether(int count, Work work) {
  pthread_barrier_t barrier;
  pthread_barrier_init(&barrier, nullptr, static_cast<unsigned>(count));
  std::vector<std::thread> threads;
  threads.reserve(static_cast<size_t>(count));
  for (int index = 0; index < count; ++index) {
    threads.emplace_back([&barrier, &work, index] {
      pthread_barrier_wait(&barrier);
      work(index);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  pthread_barrier_destroy(&barrier);
}

}  // namespace QuendalTest

#endif

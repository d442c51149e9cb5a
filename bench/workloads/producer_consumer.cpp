// Producer and consumer threads: producers allocate blocks and pass them
// through one bounded queue; consumers check and free them, so nearly every
// block is released by a thread other than the one that allocated it.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "workload_common.h"

namespace {

using QuendalWorkload::CheckPattern;
using QuendalWorkload::FillPattern;
using QuendalWorkload::Random;

struct Message {
  void* block;
  size_t size;
  uint64_t tag;
  bool from_new;
};

// A null block tells one consumer to stop.
class Queue {
 public:
  explicit Queue(size_t capacity) : capacity_(capacity) {}

  void Push(const Message& message) {
    std::unique_lock<std::mutex> lock(mutex_);
    not_full_.wait(lock, [this] { return messages_.size() < capacity_; });
    messages_.push_back(message);
    not_empty_.notify_one();
  }

  Message Pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    not_empty_.wait(lock, [this] { return !messages_.empty(); });
    Message message = messages_.front();
    messages_.pop_front();
    not_full_.notify_one();
    return message;
  }

 private:
  size_t capacity_;
  std::mutex mutex_;
  std::condition_variable not_full_;
  std::condition_variable not_empty_;
  std::deque<Message> messages_;
};

using Totals = QuendalWorkload::BlockTally;

// Message-sized blocks: headers and small records, now and then a buffer of
// a few KiB.
size_t MessageSize(Random& random) {
  uint64_t pick = random.Next() % 100;
  if (pick < 70) {
    return random.Between(8, 128);
  }
  if (pick < 95) {
    return random.Between(129, 1024);
  }
  return random.Between(1025, 8192);
}

void Produce(Queue* queue, uint64_t seed, uint64_t blocks, Totals* totals) {
  Random random(seed);
  for (uint64_t i = 0; i < blocks; ++i) {
    Message message;
    message.size = MessageSize(random);
    message.tag = random.Next();
    // Every other block comes from operator new, to be freed by delete.
    message.from_new = i % 2 != 0;
    message.block = message.from_new ? ::operator new(message.size) : malloc(message.size);
    if (message.block == nullptr) {
      ++totals->failed;
      continue;
    }
    FillPattern(message.block, message.size, message.tag);
    totals->blocks += 1;
    totals->bytes += message.size;
    queue->Push(message);
  }
}

void Consume(Queue* queue, Totals* totals) {
  for (;;) {
    Message message = queue->Pop();
    if (message.block == nullptr) {
      return;
    }
    if (!CheckPattern(message.block, message.size, message.tag, &totals->checksum)) {
      ++totals->corrupt;
    }
    ++totals->blocks;
    totals->bytes += message.size;
    if (message.from_new) {
      ::operator delete(message.block);
    } else {
      free(message.block);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  QuendalWorkload::Options options;
  options.Declare("threads", 2, "producers, and as many consumers");
  options.Declare("blocks", 200000, "blocks per producer");
  options.Declare("queue", 256, "capacity of the queue");
  options.Declare("seed", 1, "seed of the size sequences");
  if (!options.Parse(argc, argv) || options.Get("threads") == 0 || options.Get("queue") == 0) {
    options.PrintUsage(argv[0]);
    return 2;
  }
  size_t threads = options.Get("threads");
  Queue queue(options.Get("queue"));
  std::vector<Totals> produced(threads);
  std::vector<Totals> consumed(threads);
  std::vector<std::thread> consumers;
  std::vector<std::thread> producers;
  for (size_t t = 0; t < threads; ++t) {
    consumers.emplace_back(Consume, &queue, &consumed[t]);
  }
  for (size_t t = 0; t < threads; ++t) {
    producers.emplace_back(Produce, &queue, QuendalWorkload::MixSeed(options.Get("seed"), t),
                           options.Get("blocks"), &produced[t]);
  }
  for (std::thread& producer : producers) {
    producer.join();
  }
  for (size_t t = 0; t < threads; ++t) {
    queue.Push(Message{nullptr, 0, 0, false});
  }
  for (std::thread& consumer : consumers) {
    consumer.join();
  }
  Totals in;
  Totals out;
  for (size_t t = 0; t < threads; ++t) {
    in.Add(produced[t]);
    out.Add(consumed[t]);
  }
  bool balanced = in.blocks == out.blocks && in.bytes == out.bytes;
  printf("producer_consumer threads=%zu blocks=%llu bytes=%llu checksum=%016llx corrupt=%llu\n",
         threads, static_cast<unsigned long long>(out.blocks),
         static_cast<unsigned long long>(out.bytes), static_cast<unsigned long long>(out.checksum),
         static_cast<unsigned long long>(out.corrupt));
  if (!balanced) {
    fprintf(stderr, "produced %llu blocks, consumed %llu\n",
            static_cast<unsigned long long>(in.blocks),
            static_cast<unsigned long long>(out.blocks));
  }
  if (in.failed != 0) {
    fprintf(stderr, "%llu allocations failed\n", static_cast<unsigned long long>(in.failed));
  }
  return balanced && out.corrupt == 0 && in.failed == 0 ? 0 : 1;
}

// Marks the work the library does for itself while it makes the C library
// allocate on its behalf: reading the ".mem" file, registering fork
// handlers, giving a thread its slot of a key, the module registry's
// strings. When a drop-in puts the process's malloc on the heap, requests
// made inside such work go back to the C library, so the heap never holds
// its own structures and never re-enters itself while it initialises.
// Without the drop-in the marks do nothing.
#ifndef QUENDAL_PLATFORM_OWN_WORK_H
#define QUENDAL_PLATFORM_OWN_WORK_H

namespace Quendal {
namespace Platform {

// Defined once per shared library: a thread-local depth in the drop-in,
// empty functions in the library.
void BeginOwnWork();
void EndOwnWork();

class OwnWorkScope {
 public:
  OwnWorkScope() { BeginOwnWork(); }
  ~OwnWorkScope() { EndOwnWork(); }

 private:
  OwnWorkScope(const OwnWorkScope&);
  OwnWorkScope& operator=(const OwnWorkScope&);
};

}  // namespace Platform
}  // namespace Quendal

#endif

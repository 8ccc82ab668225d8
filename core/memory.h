// Heap blocks handed across the C interface.
//
// Image data, colour maps and the other buffers an application may pass in
// or take over are plain C heap blocks: an application frees what it takes
// with free(), and the library frees a buffer that an application lent with
// the locked flag when the image is destroyed.  Everything goes through
// these two calls so that tests can make an allocation fail on purpose.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace pix::memory {

void* allocate(std::size_t bytes) noexcept;
void* reallocate(void* block, std::size_t bytes) noexcept;
void release(void* block) noexcept;

// Test hook: the next `count` allocations succeed, the one after fails
// (once).  A negative count switches failures off.
void fail_after(long count) noexcept;

template <class T>
T* allocate_array(std::size_t count) noexcept {
  return static_cast<T*>(allocate(count * sizeof(T)));
}

struct Release {
  void operator()(void* block) const noexcept { release(block); }
};
// Owner of a block until it is handed to a record or an application.
template <class T>
using Owned = std::unique_ptr<T, Release>;

}  // namespace pix::memory

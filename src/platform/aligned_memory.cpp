#include "platform/aligned_memory.h"

#include <new>

namespace hxr::platform {

void* alignedAllocate(std::size_t bytes) noexcept {
    if (bytes == 0) return nullptr;
    return ::operator new (bytes, std::align_val_t{bufferAlignment}, std::nothrow);
}

void alignedFree(void* block) noexcept {
    ::operator delete (block, std::align_val_t{bufferAlignment});
}

}  // namespace hxr::platform

#ifndef VEXAllocator_h
#define VEXAllocator_h

#include "VEXFatalError.h"

#include <cstddef>
#include <cstdlib>

/// The allocator of the value types that use standard containers. Their operations have no result
/// that could report a failure, and nothing throws. So without memory the process ends.
template <class T>
class VEXAllocator {
public:
    using value_type = T;

    VEXAllocator() = default;

    template <class U>
    VEXAllocator(const VEXAllocator<U>&) noexcept {}

    T* allocate(std::size_t iCount) {
        void* block = iCount <= kMaxCount ? std::malloc(iCount * sizeof(T)) : nullptr;
        if (block == nullptr) {
            VEXFatalError(
                "AssertionFailed: memory for a value", nullptr, nullptr, nullptr, __FILE__,
                __LINE__);
        }
        return static_cast<T*>(block);
    }

    void deallocate(T* iBlock, std::size_t) noexcept { std::free(iBlock); }

    template <class U>
    bool operator==(const VEXAllocator<U>&) const noexcept {
        return true;
    }

    template <class U>
    bool operator!=(const VEXAllocator<U>&) const noexcept {
        return false;
    }

private:
    static constexpr std::size_t kMaxCount = static_cast<std::size_t>(-1) / sizeof(T);
};

#endif

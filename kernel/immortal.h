// State that is made before main() and never destroyed: objects and threads may outlive its end.
#pragma once

#include <cstddef>
#include <new>

namespace kiv {

template <class T>
class Immortal {
  public:
    Immortal() noexcept { new (storage_) T; }
    Immortal(const Immortal &) = delete;
    Immortal &operator=(const Immortal &) = delete;
    T *operator->() noexcept { return std::launder(reinterpret_cast<T *>(storage_)); }

  private:
    alignas(T) std::byte storage_[sizeof(T)];
};

}  // namespace kiv

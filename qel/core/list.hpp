// A growing list of plain records in C memory, for what is gathered while a configuration loads.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace qel {

template <class T>
class List {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    List() = default;
    ~List() { std::free(data_); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    /// Appends a copy and returns where it stands until the next one; null when memory runs out.
    T* push(const T& value) {
        if (count_ == room_) {
            const uint32_t room = room_ > 0 ? 2 * room_ : 16;
            void* data = std::realloc(static_cast<void*>(data_), size_t{room} * sizeof(T));
            if (!data) return nullptr;
            data_ = static_cast<T*>(data);
            room_ = room;
        }
        data_[count_] = value;
        return &data_[count_++];
    }

    /// Takes the last one off.
    void pop() { --count_; }

    uint32_t size() const { return count_; }
    T& operator[](uint32_t i) { return data_[i]; }
    const T& operator[](uint32_t i) const { return data_[i]; }
    T* begin() { return data_; }
    T* end() { return data_ + count_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + count_; }

  private:
    T* data_ = nullptr;
    uint32_t count_ = 0, room_ = 0;
};

}  // namespace qel

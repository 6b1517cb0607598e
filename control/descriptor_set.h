#pragma once

#include <type_traits>

#include <sys/select.h>

/// A set of descriptors for select(). The functions are those of FD_SET() and its like without the C library's check of
/// each number, which costs more than they do: whoever gives a number has asked fits().
class descriptor_set {
public:
    /// Whether select() can wait for it; -1 stands for none.
    static bool fits(int fd) { return fd >= 0 && fd < FD_SETSIZE; }

    bool has(int fd) const { return (words()[fd / bits] >> fd % bits & 1) != 0; }
    void add(int fd) { words()[fd / bits] |= word{1} << fd % bits; }
    /// Becomes like `other`, when neither has one above `highest`.
    void copy(descriptor_set const& other, int highest) {
        for (int i = 0; i * bits <= highest; i++)
            words()[i] = other.words()[i];
    }
    /// Empties it, when it has none above `highest`.
    void clear(int highest) {
        for (int i = 0; i * bits <= highest; i++)
            words()[i] = 0;
    }
    fd_set* get() { return &set; }

private:
    using word = std::make_unsigned_t<std::remove_reference_t<decltype(fd_set::fds_bits[0])>>;
    static constexpr int bits = 8 * sizeof(word);

    word* words() { return reinterpret_cast<word*>(set.fds_bits); }
    word const* words() const { return reinterpret_cast<word const*>(set.fds_bits); }

    fd_set set{};
};

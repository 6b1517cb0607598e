#pragma once

#include <type_traits>

#include <sys/select.h>

/// A set of descriptors for select(). The functions are those of FD_SET() and its like without the C library's check of
/// each number, which costs more than they do: whoever gives a number has asked fits().
class descriptor_set {
public:
    /// Whether select() can wait for it; -1 stands for none.
    static bool fits(int fd) { return fd >= 0 && fd < FD_SETSIZE; }

    bool has(int fd) const {
        auto const at = static_cast<unsigned>(fd);
        return (words()[at / bits] >> at % bits & 1) != 0;
    }
    void add(int fd) {
        auto const at = static_cast<unsigned>(fd);
        words()[at / bits] |= word{1} << at % bits;
    }
    /// Becomes like `other`, when neither has one above `highest`.
    void copy(descriptor_set const& other, int highest) {
        for (int i = words_up_to(highest) - 1; i >= 0; i--)
            words()[i] = other.words()[i];
    }
    /// Empties it, when it has none above `highest`.
    void clear(int highest) {
        for (int i = words_up_to(highest) - 1; i >= 0; i--)
            words()[i] = 0;
    }
    fd_set* get() { return &set; }

private:
    using word = std::make_unsigned_t<std::remove_reference_t<decltype(fd_set::fds_bits[0])>>;
    static constexpr unsigned bits = 8 * sizeof(word);

    static int words_up_to(int highest) {
        return static_cast<int>((static_cast<unsigned>(highest + 1) + bits - 1) / bits);
    }
    word* words() { return reinterpret_cast<word*>(set.fds_bits); }
    word const* words() const { return reinterpret_cast<word const*>(set.fds_bits); }

    fd_set set{};
};

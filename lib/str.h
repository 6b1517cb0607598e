#pragma once

#include <cstddef>
#include <cstdint>

/// The one string type: any bytes, explicit length, never assumed to be NUL-terminated.
///
/// Copies and sub-strings share one buffer block and cost no allocation; a block is copied only when one of
/// its sharers writes (copy on write). There is no reference count: all sharers of a block form a circular
/// ring of `str` objects, so "am I the sole owner" is one comparison. The last sharer returns the block to
/// the pool. The same pool of size-class blocks serves every `new` and `delete` of the process.
///
/// Not thread-safe on purpose: the process has one thread. No operation throws or reports a bad index: reads
/// out of range give 0, sub-strings clip, negative counts give empty strings. When the system has no memory
/// left the process ends.
class str {
public:
    /// Header of a buffer block; the data area follows directly behind it. 16 bytes on every target, so that
    /// header plus data area is a power of two for the class sizes up to 128 KiB.
    struct reference {
        union {
            reference* next_free;     ///< while the block lies in a free list
            str* owner;               ///< while it is in use: who asked for it (null for str::malloc)
            std::uint64_t link_room;  ///< keeps the header's size the same for 32-bit pointers
        };
        std::int32_t capacity;  ///< bytes of the data area
        std::uint32_t flags;    ///< see the flag_ constants

        unsigned char* data() { return reinterpret_cast<unsigned char*>(this + 1); }
    };
    static_assert(sizeof(reference) == 16);

    /// A raw pointer into the data was handed out (c_str(), buffer()): compress() must not move the bytes.
    static constexpr std::uint32_t flag_pointer_held = 1;
    /// Flags of a block from str::malloc: bit 0 as above, bit 2 "not a string".
    static constexpr std::uint32_t flags_malloc = 5;
    /// The same when the caller asked for the array variant (all `operator new` calls do).
    static constexpr std::uint32_t flags_malloc_array = 13;

    /// Holds a secret, see keep_secret().
    static constexpr std::uint32_t flag_secret = 16;

    /// One row of the size-class table.
    struct size_class {
        std::int32_t size;     ///< bytes of the data area
        reference* free_head;  ///< released blocks of this class, linked by next_free
        std::int32_t created;  ///< blocks ever obtained from the system for this class
    };
    static constexpr int class_count = 18;
    /// 2^k - 16 for k = 5..17, then steps of 65536 up to 458736 bytes.
    static size_class block_size[class_count];
    /// Blocks above the last class ever created (each goes back to the system when released).
    static std::int32_t large_blocks;
    /// Total of all data-area sizes ever obtained from the system, in bytes; only grows.
    static std::uint64_t allocated_size;

    /// Empty; owns nothing.
    constexpr str() : ref(nullptr), next(this), prev(this), start(0), end(0) {}
    /// Shares the other's block; no bytes are copied.
    str(str const& other);
    /// Takes over what the other one holds, its place among the sharers of the block too; the other is empty then.
    str(str&& other) noexcept;
    /// Copies `text` up to its NUL; null or "" gives an empty string.
    str(char const* text);
    /// Copies n bytes. n < 1 gives an empty string; null with n >= 1 gives n bytes of undefined content.
    str(unsigned char const* data, int n);
    /// Decimal text with at least `width` digits, padded with "0"; a minus sign counts as one of them. A
    /// width above 10 adds no padding.
    str(int value, int width);
    str(unsigned int value, int width);
    /// n copies of byte c (n < 1: empty).
    str(unsigned char c, int n);
    str(char c, int n);
    /// The given bytes, in order.
    str(unsigned char a, unsigned char b);
    str(unsigned char a, unsigned char b, unsigned char c);
    str(unsigned char a, unsigned char b, unsigned char c, unsigned char d);
    ~str();

    // ---- constants, built before main() runs
    static str null;       ///< empty
    static str lws;        ///< " \t\r\n"
    static str crlf;       ///< "\r\n"
    static str space;      ///< " "
    static str newline;    ///< "\n"
    static str t;          ///< "true"
    static str f;          ///< "false"
    static str x_00;       ///< one byte 0x00
    static str x_01;       ///< one byte 0x01
    static str x_FF;       ///< one byte 0xFF
    static str c_file;     ///< "file"
    static str c_dir;      ///< "dir"
    static str backslash;  ///< "\\"
    static str slash;      ///< "/"
    static str dot;        ///< "."
    static str dot_dot;    ///< ".."

    // ---- access
    /// Bytes in the string.
    int length() const { return end - start; }
    bool empty() const { return end == start; }
    /// The byte at i; 0 when i is outside.
    unsigned char operator[](int i) const {
        return i < 0 || i >= length() ? static_cast<unsigned char>(0) : ref->data()[start + i];
    }
    /// First byte, read-only; valid until the string changes or dies. Never null.
    unsigned char const* cbuffer() const { return ref ? ref->data() + start : nothing; }
    unsigned char const* buffer() const { return cbuffer(); }
    /// First byte for writing: makes the buffer private first. A string without a block gives a static dummy
    /// area that nobody reads.
    unsigned char* buffer();
    /// The text with one NUL behind it (not counted in length()); may copy. Valid until the string changes.
    char* c_str();
    /// Drops the buffer.
    void clear();
    /// Whoever shares this string's block: its bytes are overwritten with zeros when the last one releases it. Blocks
    /// into which they are copied by growing, writing, appending and concatenating are treated alike.
    void keep_secret() {
        if (ref)
            ref->flags |= flag_secret;
    }
    /// Bytes of the block that this string keeps alive; 0 without one.
    int get_block_bytes() const { return ref ? ref->capacity : 0; }
    bool is_secret() const { return ref && ref->flags & flag_secret; }
    /// A secret copy in a block of its own; this string's bytes become zeros for all who share them.
    str take_secret();
    /// Consistency hook; does nothing.
    void check() const {}

    // ---- assignment and concatenation
    str& operator=(str const& other);
    str& operator=(str&& other) noexcept;
    /// A new private string of both, one after the other.
    str operator+(str const& other) const;
    str& operator+=(str const& other);
    str& operator+=(unsigned char c) {
        writable(1);
        ref->data()[end - 1] = c;
        return *this;
    }
    str& operator+=(char c) { return *this += static_cast<unsigned char>(c); }
    /// Appends n bytes; `data` must not point into this string. n < 1: nothing.
    void append(unsigned char const* data, int n);

    // ---- comparison, byte-wise, no locale; all answer equality but operator<
    bool compare_sensitiv(str const& other) const;
    bool cmp(str const& other) const { return compare_sensitiv(other); }
    bool operator==(str const& other) const { return compare_sensitiv(other); }
    bool operator!=(str const& other) const { return !compare_sensitiv(other); }
    /// Equal up to its NUL; a null pointer equals the empty string.
    bool operator==(char const* text) const;
    bool operator!=(char const* text) const { return !(*this == text); }
    /// Equal but for the case of ASCII letters.
    bool compare_insensitiv(str const& other) const;
    bool icmp(str const& other) const { return compare_insensitiv(other); }
    bool icmp(char const* text) const;
    /// Unsigned bytes over the shorter length; if all are equal the shorter string is less.
    bool operator<(str const& other) const;

    // ---- sub-strings; all share the buffer
    /// n bytes from pos; clipped at both sides (a negative pos shortens n by the excess).
    str substr(int pos, int n) const;
    /// From pos (negative: 0) to the end.
    str substr(int pos) const;
    str leftstr(int n) const { return substr(0, n); }
    /// The last n bytes; the whole string when n >= length().
    str rightstr(int n) const;
    /// Index of the first occurrence of s; -1 when not found or when this string is empty; 0 for an empty s.
    int find(str const& s) const;

    // ---- changes
    /// Prepares for writing n more bytes at the end (content undefined) and grows the length by n; n = 0
    /// makes a shared buffer private. Grows in place when nobody shares and the block has room.
    void writable(int n);
    /// Grows by n bytes at the front (content undefined; n < 1: nothing): in place when nobody shares the block and
    /// what drop_front() took off left room.
    void writable_front(int n);
    /// Sets the length in place, shortening or exposing bytes already in the block; when the string shares
    /// its block or start + n does not fit, logs "Cannot set length %d" (level 1) and changes nothing.
    void set_length(int n);
    /// Takes n bytes off the front: all when there are fewer, none when n < 1.
    void drop_front(int n);
    /// Writes one byte, growing the string with zero bytes up to it; a negative i is ignored.
    void set_character(int i, unsigned char c);
    /// Moves what the ring still uses into a smaller block when that saves a size class. No effect while a
    /// raw pointer may be held, on blocks of the smallest class, on large blocks and on rings of more
    /// than 16.
    void compress();
    /// XORs each of the first n bytes with key, extending the string with zero bytes to n first.
    void l_xor(unsigned char key, int n);
    /// Bitwise operations on two strings: as long as the longer one, but only bytes within the shorter one
    /// are computed; the rest are zero (for OR and XOR too).
    str operator&(str const& other) const;
    str operator^(str const& other) const;
    str operator|(str const& other) const;
    /// Logical NOT: each byte 1 where the source byte is 0, else 0.
    str operator!() const;

    // ---- numbers and fields in text
    /// Decimal value: blanks and tabs, one optional "+", one optional "-", digits (32 bits, wrapping).
    /// Trailing text is ignored; no digit gives 0.
    int value() const;
    /// The same without the "-".
    unsigned int unsigned_value() const;
    /// Nothing but one run of digits (a "-" only in front) between optional blanks and tabs.
    bool is_number() const;
    /// Whether byte c occurs in set.
    static bool one_of(unsigned char c, str const& set);
    /// Without the leading and trailing bytes that are in set; an empty set changes nothing.
    str strip(str const& set) const;
    str strip(char c) const;
    str strip_leading(str const& set) const;
    str strip_trailing(str const& set) const;
    /// The n-th (from 0) run of bytes that are not separators; runs of separators count as one. Empty beyond
    /// the end.
    str get_field(int n, str const& separators) const;
    /// The same with one separator; a field also ends at CR or LF.
    str get_field(int n, char sep) const;
    /// From the n-th field (one separator) to the end of the string.
    str get_rest(int n, char sep) const;

    // ---- lines. CR, LF, CR LF and LF CR each end one line; CR CR and LF LF are two ends.
    /// Position of the first byte of line n (from 0); the length when there are fewer. With fold, a CR LF
    /// followed by a blank or tab continues the line (header folding).
    int first_letter_of_line(int n, bool fold) const;
    /// Index just after the last byte that is neither CR nor LF. Both arguments are ignored.
    int last_letter_of_line(int n, bool fold) const;
    /// Line n without its end; empty when there is none.
    str get_line(int n) const;
    /// Takes the first line off this string and returns it without its end.
    str take_line();

    // ---- records: lines of a name, a separator and a value; names ignore case; folded lines continue
    /// The first line whose name (field 0, stripped of strip_set) is name or, if not empty, alt_name; without
    /// its line end; empty when none.
    str get_record(str const& name, str const& alt_name, char sep, str const& strip_set) const;
    /// What follows the first sep of that line, stripped of strip_set.
    str get_record_content(str const& name, str const& alt_name, char sep, str const& strip_set) const;
    /// A copy in which that line (its name compared unstripped) becomes: its name as written, sep, prefix,
    /// value, CR LF. When there is none, such a line with `name` is inserted before the final run of line
    /// ends.
    str set_record_content(str const& name, str const& alt_name, str const& value, char sep, str const& prefix) const;

    // ---- formatting
    /// Conversions: %d (int; width pads with zeros, flag or not), %u (unsigned, width ignored), %c (int
    /// holding a byte), %s (arg_str()), %S (char const*), %x (unsigned; always the low four upper-case hex
    /// digits), %h / %H (arg_str(); every byte as two lower- / upper-case hex digits), %%. Any other is
    /// dropped and consumes no argument. A null format gives an empty string.
    static str sprintf(char const* format, ...);

    // ---- block pool
    /// Index of the first class whose size is at least `size` bytes; class_count when none is.
    static int find_bin(int size);
    /// Bytes of a block's data area in that class.
    static int get_bin_size(int bin);
    /// A block of at least `size` bytes, from the class's free list or from the system; a large one is
    /// rounded up to a multiple of 32768. Flags are 0; `owner` is recorded.
    static reference* get_cstring_static(int size, str* owner);
    reference* get_cstring(int size) { return get_cstring_static(size, this); }
    /// Back to the free list; a large block goes back to the system.
    static void release_cstring(reference* block);
    /// Memory for anything; aligned for any type. free(null) does nothing.
    static void* malloc(unsigned size, bool array);
    static void free(void* p);
    /// "total:" then " size/count" for each class, then a blank and the number of large blocks; total is the
    /// bytes of all class blocks ever created.
    static str statistics();

    // ---- files; every path has "\" turned into "/" first. Messages are logged at level 1.
    /// The whole file; empty on any failure. Special files that report size 0 are read to their end. A file
    /// without a status, so a missing one too, logs "Could not fstat %s" unless quiet.
    static str read_file(str const& path, bool quiet);
    /// Bytes; 0 on any failure.
    static int file_size(str const& path);
    /// Writes the whole file, creating missing directories. On failure logs, removes the file, returns false.
    static bool write_file(str const& content, str const& path);
    /// The names of all entries but "." and ".."; with detailed each is followed by " dir" or " file". Every
    /// entry ends with a line feed.
    static str list_directory(str const& path, bool detailed);
    /// Logs "Cannot remove file %s" unless quiet.
    static bool remove_file(str const& path, bool quiet);
    /// Logs "Cannot rename file %s to %s".
    static bool rename_file(str const& from, str const& to);
    /// A copy with ASCII "A" to "Z" mapped to "a" to "z".
    static str lower_case(str const& text);

private:
    /// A constant in a block of its own that did not come from the pool.
    constexpr str(reference& block, int length) : ref(&block), next(this), prev(this), start(0), end(length) {}
    /// Bytes [from, to) of another's block; `other` must own one.
    str(str const& other, int from, int to) : ref(other.ref), start(from), end(to) { join(other); }

    static constexpr std::size_t bytes(int n) { return static_cast<std::size_t>(n); }

    /// Whether nobody shares the block.
    bool alone() const { return next == this; }
    /// Enters the ring of `other`; this must not be in any.
    void join(str const& other) {
        next = const_cast<str*>(&other);
        prev = other.prev;
        prev->next = this;
        other.prev = this;
    }
    /// Becomes what `other`, which is another object, is; this must not be in any ring. `other` is empty then.
    void take_over(str& other) {
        ref = other.ref;
        start = other.start;
        end = other.end;
        if (!other.alone()) {
            next = other.next;
            prev = other.prev;
            next->prev = prev->next = this;
            other.next = other.prev = &other;
        }
        other.ref = nullptr;
        other.start = other.end = 0;
    }
    /// Leaves the ring, or releases the block when alone; ref is stale afterwards.
    void drop() {
        if (alone()) {
            if (ref)
                release_cstring(ref);
            return;
        }
        next->prev = prev;
        prev->next = next;
        next = prev = this;
    }
    void move_to_new_block(int n);
    void own_new_block(int size);
    void grow_zeroed(int n);
    template <typename operation>
    str bitwise(str const& other, operation combine) const;
    int used_span(int& from) const;

    /// What buffers of strings without a block point to.
    static unsigned char nothing[];

    reference* ref;
    mutable str* next;
    mutable str* prev;
    std::int32_t start;
    std::int32_t end;
};

/// Adapters with which arguments are passed to str::sprintf.
inline int arg_int(int const& value) {
    return value;
}
inline str const* arg_str(str const& text) {
    return &text;
}

/// Big-endian unsigned integer of the first 2 bytes; bytes beyond the end count as 0.
std::uint16_t str2int16(str const& data);
/// Big-endian unsigned integer of the first 4 bytes; bytes beyond the end count as 0.
std::uint32_t str2uint32(str const& data);

#include "lib/str_inline.h"

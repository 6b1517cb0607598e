#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

/// Small values of the simulated world.
namespace sim {

/// Memory of the C library. Whatever the world stores is outside the product's block pool (which serves every `new`
/// of a program), so that the pool shows the product's use alone.
template <typename T>
struct outside {
    using value_type = T;
    outside() = default;
    template <typename U>
    outside(outside<U> const&) {}
    T* allocate(std::size_t n) {
        if (void* const p = std::malloc(n * sizeof(T)))
            return static_cast<T*>(p);
        std::abort();
    }
    void deallocate(T* p, std::size_t) { std::free(p); }
    bool operator==(outside const&) const { return true; }
};

using bytes = std::basic_string<char, std::char_traits<char>, outside<char>>;

/// An address of either family and a port.
struct endpoint {
    std::array<unsigned char, 16> address{};  ///< network order; unused bytes are zero
    std::uint8_t size = 0;                    ///< bytes of the address: 4, 16, or 0 for none
    std::uint16_t port = 0;                   ///< host order

    auto operator<=>(endpoint const&) const = default;
    std::string_view address_bytes() const { return {reinterpret_cast<char const*>(address.data()), size}; }
    endpoint with_port(int other) const {
        endpoint e = *this;
        e.port = static_cast<std::uint16_t>(other);
        return e;
    }
};

constexpr endpoint v4(unsigned char a, unsigned char b, unsigned char c, unsigned char d, int port) {
    return {{a, b, c, d}, 4, static_cast<std::uint16_t>(port)};
}
/// 2001:db8::<last>, the addresses for documentation (RFC 3849).
constexpr endpoint v6(unsigned char last, int port) {
    endpoint e{{0x20, 0x01, 0x0D, 0xB8}, 16, static_cast<std::uint16_t>(port)};
    e.address[15] = last;
    return e;
}

/// Where decisions come from.
class decider {
public:
    virtual ~decider() = default;
    /// Any 32 bits.
    virtual std::uint32_t word() = 0;
    /// 0..n-1
    virtual int below(int n) { return static_cast<int>(word() % static_cast<std::uint32_t>(n)); }
    /// low..high
    int between(int low, int high) { return low + below(high - low + 1); }
    bool chance(int permille) { return below(1000) < permille; }
};

/// A seed, the same decisions on every machine (xorshift64*, Vigna 2016).
class random_source final : public decider {
public:
    explicit random_source(std::uint64_t seed) : state(seed * 0x9E3779B97F4A7C15u + 0x632BE59BD9B4E019u) {}
    std::uint32_t word() override {
        state ^= state >> 12;
        state ^= state << 25;
        state ^= state >> 27;
        return static_cast<std::uint32_t>(state * 0x2545F4914F6CDD1Du >> 32);
    }

private:
    std::uint64_t state;
};

}  // namespace sim

#pragma once

#include <fxsmedia/protocol.h>
#include <fxsmedia/values.h>

#include <cstddef>
#include <string_view>
#include <type_traits>

/// The bytes of the control protocol, for any message: a struct with a `tag` and a static `fields(message, each)` that
/// calls each(format, member) for every sub-field, in the order of lib/protocol.h. What a member is written as, its
/// format says.
///
///     offset  size  field (integers big-endian)
///          0     2  tag
///          2     2  L, length of the value in bytes
///          4     L  value: sub-fields in the same layout, one level deep, or plain bytes
namespace fxsmedia {

inline constexpr std::size_t element_header_bytes = 4;
inline constexpr std::size_t longest_value_bytes = 0xFFFF;
/// Of a UDP datagram over IPv4: 65,535 less the headers of IP and UDP.
inline constexpr std::size_t largest_datagram_bytes = 65507;

/// A base for messages without sub-fields.
struct without_fields {
    template <class message, class action>
    static constexpr void fields(message&, action&&) {}
};

/// Writes commands behind one another into memory of the caller: one datagram.
class datagram_writer {
public:
    explicit datagram_writer(std::span<std::uint8_t> memory) : room(memory) {}

    /// false, with nothing written, when the room is too small, or when a value does not fit into its sub-field: a
    /// negative port, say, or an address of neither 4 nor 16 bytes.
    template <class message>
    bool append(message const& command) {
        std::size_t const begin = used;
        sound = true;
        header(message::tag, 0);
        message::fields(
            command, [this](protocol::field_format const& format, auto const& member) { this->field(format, member); });
        std::size_t const length = used - begin - element_header_bytes;
        if (!sound || length > longest_value_bytes) {
            used = begin;
            return false;
        }
        room[begin + 2] = static_cast<std::uint8_t>(length >> 8);
        room[begin + 3] = static_cast<std::uint8_t>(length);
        return true;
    }

    byte_view datagram() const { return room.first(used); }

private:
    template <class type>
    void field(protocol::field_format const& format, std::optional<type> const& member) {
        if (member)
            value(format, *member);
    }
    void field(protocol::field_format const& format, std::span<codec_choice const> members) {
        for (codec_choice const& member : members)
            value(format, member);
    }
    template <class type>
    void field(protocol::field_format const& format, type const& member) {
        value(format, member);
    }

    void value(protocol::field_format const& format, std::int32_t number) {
        bool const is_byte = format.kind == protocol::value_kind::byte;
        bool const is_long = format.kind == protocol::value_kind::signed_long;
        sound = sound && (is_long || (number >= 0 && number <= (is_byte ? 0xFF : 0xFFFF)));
        auto const bits = static_cast<std::uint32_t>(number);
        header(format.tag, is_byte ? 1 : is_long ? 4 : 2);
        if (is_long)
            put16(bits >> 16);
        if (is_byte)
            put8(bits);
        else
            put16(bits);
    }
    void value(protocol::field_format const& format, bool flag) { value(format, std::int32_t{flag}); }
    void value(protocol::field_format const& format, byte_view bytes) {
        header(format.tag, bytes.size());
        put(bytes);
    }
    void value(protocol::field_format const& format, std::string_view text) {
        value(format, byte_view(reinterpret_cast<std::uint8_t const*>(text.data()), text.size()));
    }
    void value(protocol::field_format const& format, endpoint const& address) {
        sound = sound && (address.ip_bytes == 4 || address.ip_bytes == 16);
        header(format.tag, 2u + address.ip_bytes);
        put16(address.port);
        put(byte_view(address.ip, sound ? address.ip_bytes : 0u));
    }
    void value(protocol::field_format const& format, codec_choice const& choice) {
        bool const payload_type_first = format.kind == protocol::value_kind::codec_to_send;
        int const first = payload_type_first ? choice.payload_type : choice.codec;
        int const second = payload_type_first ? choice.codec : choice.payload_type;
        sound = sound && first >= 0 && first <= 0xFF && second >= 0 && second <= 0xFF;
        header(format.tag, 2);
        put8(static_cast<unsigned>(first));
        put8(static_cast<unsigned>(second));
    }

    void header(int tag, std::size_t length) {
        sound = sound && length <= longest_value_bytes;
        put16(static_cast<unsigned>(tag));
        put16(static_cast<unsigned>(length));
    }
    void put16(std::uint32_t number) {
        put8(number >> 8);
        put8(number);
    }
    void put8(std::uint32_t number) {
        std::uint8_t const byte[] = {static_cast<std::uint8_t>(number)};
        put(byte);
    }
    void put(byte_view bytes) {
        sound = sound && bytes.size() <= room.size() - used;
        if (!sound || bytes.empty())
            return;
        std::memcpy(room.data() + used, bytes.data(), bytes.size());
        used += bytes.size();
    }

    std::span<std::uint8_t> room;
    std::size_t used = 0;
    bool sound = true;
};

inline std::uint32_t big_endian(byte_view value) {
    std::uint32_t number = 0;
    for (std::uint8_t const byte : value)
        number = number << 8 | byte;
    return number;
}

/// One element of received bytes.
struct element {
    int tag = 0;
    byte_view value;

    /// Takes the first one off `data`. false, with `data` unchanged, when it is not whole.
    bool take(byte_view& data) {
        if (data.size() < element_header_bytes)
            return false;
        std::size_t const length = big_endian(data.subspan(2, 2));
        if (data.size() - element_header_bytes < length)
            return false;
        tag = static_cast<int>(big_endian(data.first(2)));
        value = data.subspan(element_header_bytes, length);
        data = data.subspan(element_header_bytes + length);
        return true;
    }
};

/// Why received bytes are no report.
enum class fault {
    none,
    empty_datagram,
    cut_off,          ///< an element promises more bytes than there are
    unknown_tag,      ///< no report has it
    not_empty,        ///< a report without sub-fields has some
    field_cut_off,    ///< the same inside a report
    field_missing,    ///< a sub-field that is always there is not
    field_malformed,  ///< a sub-field has a length that its kind does not allow
};

struct finding {
    fault what = fault::none;
    int field = 0;  ///< tag of the sub-field that is missing or malformed
};

/// Reads the value of a report. Views in `report` show into `value`. Sub-fields that the report does not know are
/// passed over; of one that stands twice the later counts; of those that hold bytes and may be absent there is one.
template <class message>
class report_reader {
public:
    static finding read(byte_view value, message& report) {
        element one;
        byte_view rest = value;
        while (one.take(rest)) {
        }
        finding found{rest.empty() ? fault::none : fault::field_cut_off};
        bool any_field = false, chosen = false;
        int choice = 0;
        message::fields(report, [&]<class type>(protocol::field_format const& format, type& member) {
            any_field = true;
            if (found.what == fault::none)
                found = field(value, format, member);
            if constexpr (std::is_same_v<type, std::optional<byte_view>>) {
                choice = choice == 0 ? format.tag : choice;
                chosen = chosen || member;
            }
        });
        if (!any_field && !value.empty())
            return {fault::not_empty};
        return found.what == fault::none && choice != 0 && !chosen ? finding{fault::field_missing, choice} : found;
    }

private:
    template <class type>
    static finding field(byte_view value, protocol::field_format const& format, std::optional<type>& member) {
        finding const found = field(value, format, member.emplace());
        if (found.what == fault::none)
            return found;
        member.reset();
        return found.what == fault::field_missing ? finding() : found;
    }
    template <class type>
    static finding field(byte_view value, protocol::field_format const& format, type& member) {
        element one;
        byte_view bytes;
        bool present = false;
        while (one.take(value)) {
            bytes = one.tag == format.tag ? one.value : bytes;
            present = present || one.tag == format.tag;
        }
        if (!present)
            return {fault::field_missing, format.tag};
        return convert(bytes, format, member) ? finding() : finding{fault::field_malformed, format.tag};
    }

    static bool convert(byte_view bytes, protocol::field_format const& format, int& number) {
        auto const bits = static_cast<std::uint16_t>(big_endian(bytes));
        bool const negative = format.kind == protocol::value_kind::signed_number;
        number = negative ? static_cast<std::int16_t>(bits) : int{bits};
        return bytes.size() == 2;
    }
    static bool convert(byte_view bytes, protocol::field_format const&, bool& flag) {
        flag = big_endian(bytes) != 0;
        return bytes.size() == 2;
    }
    static bool convert(byte_view bytes, protocol::field_format const&, byte_view& data) {
        data = bytes;
        return true;
    }
    static bool convert(byte_view bytes, protocol::field_format const&, std::string_view& text) {
        text = {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
        return true;
    }
    static bool convert(byte_view bytes, protocol::field_format const&, endpoint& address) {
        if (bytes.size() != 6 && bytes.size() != 18)
            return false;
        address.port = static_cast<std::uint16_t>(big_endian(bytes.first(2)));
        address.ip_bytes = static_cast<std::uint8_t>(bytes.size() - 2);
        std::memcpy(address.ip, bytes.data() + 2, address.ip_bytes);
        return true;
    }
};

/// Whether the messages are those of the table, sub-field for sub-field.
template <class... messages, std::size_t count>
consteval bool follow_the_table(protocol::message_format const (&formats)[count]) {
    protocol::message_format const* format = formats;
    auto const follows = [&format]<class message>(message const& one) {
        auto expected = format->fields.begin();
        bool same = format->tag == message::tag;
        message::fields(one, [&](protocol::field_format const& field, auto const&) {
            same = same && expected != format->fields.end() && expected->tag == field.tag;
            expected += same ? 1 : 0;
        });
        return same && expected == format++->fields.end();
    };
    return sizeof...(messages) == count && (follows(messages{}) && ...);
}

}  // namespace fxsmedia

// What comes over the socket of call control, the driver's message pipe and the signalling device, in the whole
// process: every byte string is taken, and answered as its meaning says.

#include <algorithm>
#include <deque>

#include "fuzz/fuzz_world.h"
#include "lib/tlv.h"

namespace {

/// Counts answers by tag; what the pipe and the signalling device bring is kept.
struct listener : fuzz_world {
    using fuzz_world::fuzz_world;
    int answers[29] = {};
    sim::bytes lines, signalled, written;

    void reported(int tag, str const& value) override {
        answers[tag]++;
        if (tag == 25)
            lines.append(fuzz_view(value)).append("\n");
        if (tag == 8)
            signalled.append(fuzz_view(value.substr(tlv_header_bytes)));
    }
    void signal(std::string_view data) override { written.append(data); }
    void allow(bool tunnel, bool led) {
        tunnelling = tunnel;
        blinking = led;
    }
};

/// An independent reader of the commands' stream: what must be answered, and what reaches the signalling device.
struct expectation {
    static constexpr int open_reply = 6, signal = 8, tunnel = 15, open = 16, session = 19, loopback = 21,
                         led = 22;
    int answers[29] = {};
    sim::bytes written;
    bool tunnelling = false, blinking = false;

    void receive(std::string_view datagram, bool from_other) {
        stream.append(datagram);
        while (stream.size() >= 4 && stream.size() >= 4 + word(2)) {
            sim::bytes const value = stream.substr(4, word(2));
            carry_out(static_cast<int>(word(0)), value, from_other);
            stream.erase(0, 4 + value.size());
        }
    }

private:
    static unsigned word(sim::bytes const& s, std::size_t at) {
        auto const byte = [&](std::size_t i) { return i < s.size() ? static_cast<unsigned char>(s[i]) : 0u; };
        return byte(at) << 8 | byte(at + 1);
    }
    unsigned word(std::size_t at) const { return word(stream, at); }

    void carry_out(int tag, sim::bytes const& value, bool from_other) {
        if (tag == session)
            other_is_master = from_other;
        if (from_other != other_is_master)
            return;
        unsigned call = 8;
        for (std::size_t i = 0, size;
             i + 4 <= value.size() && (size = word(value, i + 2)) <= value.size() - i - 4; i += 4 + size) {
            sim::bytes const field = value.substr(i + 4, size);
            if (word(value, i) == 4)
                call = word(field, 0);
            if (tag == signal && word(value, i) == 15)
                written.append(field);
        }
        tunnelling = tunnelling || tag == tunnel;
        blinking = blinking || tag == led;
        answers[session] += tag == session;
        answers[open_reply] += tag == open && call < 8;
        answers[loopback] += tag == loopback;
    }

    sim::bytes stream;
    bool other_is_master = false;
};

}  // namespace

/// Each step: 1 byte, bit 0 another sender, the rest 10 ms blocks that pass; then a piece, a datagram.
FUZZ_TARGET(control) {
    listener process;
    expectation expected;
    int beaten = 0;  // heartbeats after the first
    while (input.more(40)) {
        unsigned const what = input.byte();
        bool const other = what & 1;
        str const datagram = input.piece();
        expected.receive(fuzz_view(datagram), other);
        process.allow(expected.tunnelling, expected.blinking);
        process.world->deliver(other ? sim::v4(127, 0, 0, 1, 77) : sim::call_control, sim::control_port,
                               fuzz_view(datagram));
        process.run_ms(1);
        for (int const tag : {expectation::open_reply, expectation::loopback})
            FUZZ_CHECK(process.answers[tag] == expected.answers[tag]);
        int const heartbeats = static_cast<int>(process.world->now() / sim::second);
        int const sessions = process.answers[expectation::session] - expected.answers[expectation::session];
        FUZZ_CHECK(sessions >= beaten && sessions <= heartbeats);
        beaten = sessions;
        FUZZ_CHECK(process.written == expected.written);
        process.run_ms(static_cast<int>(what >> 1) * 10);
    }
}

/// The input is what the driver writes: pieces of 1 byte of length. A model of the way lines are cut, in other words.
FUZZ_TARGET(pipe) {
    listener process;
    sim::bytes held, expected;
    auto const strip = [](sim::bytes const& s) {
        std::size_t const from = s.find_first_not_of("\r\n");
        return from == s.npos ? sim::bytes() : s.substr(from, s.find_last_not_of("\r\n") - from + 1);
    };
    while (input.more()) {
        str const piece = input.bytes(input.byte());
        for (int at = 0; at < piece.length(); at += 128) {
            held.append(fuzz_view(piece.substr(at, 128)));
            for (std::size_t end; (end = held.find('\n')) != held.npos; held = strip(held.substr(end + 1)))
                expected.append(strip(held.substr(0, end))).append("\n");
        }
        process.world->driver_text(fuzz_view(piece));
        process.run_ms(1);
        FUZZ_CHECK(process.lines == expected);
    }
}

/// The input is what the signalling device brings: pieces.
FUZZ_TARGET(signal) {
    listener process;
    sim::bytes expected;
    int messages = 0;
    while (input.more()) {
        str const piece = input.piece();
        process.world->signal_bytes(fuzz_view(piece));
        expected.append(fuzz_view(piece));
        messages += (piece.length() + 1023) / 1024;
        process.run_ms(1);
        FUZZ_CHECK(process.signalled == expected && process.answers[8] == messages);
    }
}

// What comes over the socket of call control, the driver's message pipe and the signalling device, in the whole
// process: every byte string is taken, and answered as its meaning says.

#include "fuzz/fuzz_target.h"
#include "lib/protocol.h"
#include "lib/tlv.h"
#include "tests/sim/telephone_network.h"

namespace {

/// Counts answers by tag; what the pipe and the signalling device bring is kept.
struct listener : sim::telephone_network {
    int answers[29] = {};
    sim::bytes lines, signalled, written;

    listener() {
        start();
        answers[protocol::report_heartbeat::tag] = 0;  // without the one at the start
    }
    ~listener() override { finish(); }
    void reported(int tag, str const& value) override {
        answers[tag]++;
        if (tag == protocol::report_driver_line::tag)
            lines.append(sim::view(value)).append("\n");
        if (tag == protocol::report_signal::tag)
            signalled.append(sim::view(value.substr(tlv_header_bytes)));
    }
    void signal(std::string_view data) override { written.append(data); }
};

/// An independent reader of the commands' stream: what must be answered, and what reaches the signalling device.
struct expectation {
    int answers[29] = {};
    sim::bytes written;
    bool tunnelling = false;

    void receive(std::string_view datagram, bool from_other) {
        stream.append(datagram);
        while (stream.size() >= 4 && stream.size() >= 4 + word(stream, 2)) {
            sim::bytes const value = stream.substr(4, word(stream, 2));
            carry_out(static_cast<int>(word(stream, 0)), value, from_other);
            stream.erase(0, 4 + value.size());
        }
    }

private:
    static unsigned word(sim::bytes const& s, std::size_t at) {
        auto const byte = [&](std::size_t i) { return i < s.size() ? static_cast<unsigned char>(s[i]) : 0u; };
        return byte(at) << 8 | byte(at + 1);
    }

    void carry_out(int tag, sim::bytes const& value, bool from_other) {
        if (tag == protocol::cmd_session::tag)
            other_is_master = from_other;
        if (from_other != other_is_master)
            return;
        unsigned call = protocol::no_call;
        for (std::size_t i = 0, size; i + 4 <= value.size() && (size = word(value, i + 2)) <= value.size() - i - 4;
             i += 4 + size) {
            sim::bytes const field = value.substr(i + 4, size);
            if (word(value, i) == unsigned(protocol::call_field))
                call = word(field, 0);
            if (tag == protocol::cmd_signal::tag && word(value, i) == unsigned(protocol::cmd_signal::data))
                written.append(field);
        }
        tunnelling = tunnelling || tag == protocol::cmd_tunnel::tag;
        answers[protocol::report_heartbeat::tag] += tag == protocol::cmd_session::tag;
        answers[protocol::report_open::tag] += tag == protocol::cmd_open::tag && call < protocol::call_count;
        answers[protocol::report_loopback_test::tag] += tag == protocol::cmd_loopback_test::tag;
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
        expected.receive(sim::view(datagram), other);
        process.tunnelling = expected.tunnelling;
        process.w->deliver(other ? sim::v4(127, 0, 0, 1, 77) : sim::call_control, sim::control_port,
                           sim::view(datagram));
        process.run(sim::ms);
        for (int const tag : {protocol::report_open::tag, protocol::report_loopback_test::tag})
            FUZZ_CHECK(process.answers[tag] == expected.answers[tag]);
        int const heartbeats = static_cast<int>(process.w->now() / sim::second);
        int const sessions =
            process.answers[protocol::report_heartbeat::tag] - expected.answers[protocol::report_heartbeat::tag];
        FUZZ_CHECK(sessions >= beaten && sessions <= heartbeats);
        beaten = sessions;
        FUZZ_CHECK(process.written == expected.written);
        process.run((what >> 1) * 10 * sim::ms);
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
            held.append(sim::view(piece.substr(at, 128)));
            for (std::size_t end; (end = held.find('\n')) != held.npos; held = strip(held.substr(end + 1)))
                expected.append(strip(held.substr(0, end))).append("\n");
        }
        process.w->driver_text(sim::view(piece));
        process.run(sim::ms);
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
        process.w->signal_bytes(sim::view(piece));
        expected.append(sim::view(piece));
        messages += (piece.length() + 1023) / 1024;
        process.run(sim::ms);
        FUZZ_CHECK(process.signalled == expected && process.answers[protocol::report_signal::tag] == messages);
    }
}

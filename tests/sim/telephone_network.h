#pragma once

#include <algorithm>
#include <optional>

#include "lib/tlv.h"
#include "tests/sim/far_end.h"

namespace sim {

constexpr int far_count = 8;  ///< one for each channel

/// Surroundings with a far end for each channel: each gets what is sent to it. Also call control's part: commands and
/// the groups of fields of a media command. It checks what holds whatever happens to the process: its reports are those
/// of the protocol, what it sends is media, it never blocks, misuses a descriptor or hoards memory, and nothing is left
/// when all calls are over.
class telephone_network : public surroundings, protected far_end::ear_and_mouth {
public:
    void start(settings const& chosen = {});
    /// Ends faults and calls, and then the process: no descriptor, timeout or memory may be left.
    void finish();
    /// Time passes; what must go on goes on.
    virtual void run(std::int64_t ns);

    void report(std::string_view datagram) override;
    void sent(endpoint const& from, endpoint const& to, std::string_view datagram) override;

    std::optional<world> w;
    /// Call control sends data of its own from the media ports.
    bool tunnelling = false;

protected:
    /// One message to call control, its value as it is.
    virtual void reported(int /*tag*/, str const& /*value*/) {}
    void say(int, std::int16_t*) override {}
    void hear(int, std::int16_t const*) override {}
    void arrived(endpoint const&, endpoint const& to, std::string_view data) override {
        if (far_end* const f = owner([&](far_end const& each) { return each.owns(to); }))
            f->arrived(to, data);
    }
    bool connecting(int stream, endpoint const& to) override {
        streams = stream;
        far_end* const f = owner([&](far_end const& each) { return each.owns(to); });
        if (f)
            f->connected(stream, to);
        return f;
    }
    void stream_data(int stream, std::string_view data) override {
        if (far_end* const f = owner([&](far_end const& each) { return each.owns_stream(stream); }))
            f->stream_data(stream, data);
    }
    void wake(int token) override { fars[far_end::index_of(token)].wake(token); }

    virtual void command(int tag, str const& fields);
    void call_command(int tag, int index, str const& fields);
    /// With one number.
    void command(int tag, int field, int number) { command(tag, cmd_get_tlv_short(field, number)); }
    void call_command(int tag, int index, int field, int number) {
        call_command(tag, index, cmd_get_tlv_short(field, number));
    }
    /// Sends and accepts one codec, accepts the others of the list.
    static str codec_fields(format const& codec, format const* accepted, int count, int ptime_ms, std::uint32_t ssrc,
                            bool events);
    /// RTCP goes to the port above.
    static str destination_fields(endpoint const& rtp, bool streams);
    /// `in` and `out` of the process.
    static str key_fields(protection const& in, protection const& out);

    far_end fars[far_count];
    int rtp_ports[far_count] = {};  ///< of the channels, as they were opened last
    int streams = 0;                ///< asked for so far

private:
    void note_ports(str value);
    template <typename condition>
    far_end* owner(condition const& owns) {
        auto const found = std::find_if(std::begin(fars), std::end(fars), owns);
        return found == std::end(fars) ? nullptr : found;
    }
    std::uint64_t memory_before = 0;
};

}  // namespace sim

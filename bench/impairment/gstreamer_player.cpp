// GStreamer's rtpjitterbuffer with concealment (spanplc) as a player of one network of bench/impairment, in a time of
// its own: packets arrive when the list says, what is played is placed at its time stamp and the pipeline's latency, as
// a sink does. audiorate stands for a sound device's sink: 40 ms of drift are let pass, then samples are dropped or
// silence is put in. usage: impairment_gstreamer LATENCY_MS SAID HEARD < arrivals
//            SAID, HEARD: raw samples; arrivals: microseconds of each packet, negative if lost

#include <gst/check/gsttestclock.h>
#include <gst/gst.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

using sound = std::vector<std::int16_t>;

constexpr int sample_rate = 8000, seconds = 60;
constexpr std::size_t packet_samples = 160;
constexpr gint64 settle_us = 1000;  // real time that the pipeline's threads get

sound read(char const* path) {
    sound pcm(std::size_t{seconds} * sample_rate);
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(pcm.data()), static_cast<std::streamsize>(pcm.size() * sizeof pcm[0]));
    return pcm;
}

class player {
public:
    explicit player(int latency)
        : latency_ms(latency), clock(gst_test_clock_new()), pipeline(gst_parse_launch(description().c_str(), nullptr)) {
        gst_pipeline_use_clock(GST_PIPELINE(pipeline), clock);
        g_signal_connect(find("sink"), "handoff", G_CALLBACK(hear), this);
        gst_element_set_start_time(pipeline, GST_CLOCK_TIME_NONE);
        gst_element_set_base_time(pipeline, 0);
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
    }
    ~player() {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
        gst_object_unref(clock);
    }
    player(player const&) = delete;
    player& operator=(player const&) = delete;

    /// Waits whose end is not after this time end, one after the other.
    void advance(GstClockTime to) {
        auto* const test = GST_TEST_CLOCK(clock);
        for (GstClockID next = nullptr; gst_test_clock_peek_next_pending_id(test, &next);) {
            GstClockTime const at = gst_clock_id_get_time(next);
            gst_clock_id_unref(next);
            if (at > to)
                break;
            gst_test_clock_set_time(test, std::max(at, gst_clock_get_time(clock)));
            if (GstClockID const done = gst_test_clock_process_next_clock_id(test))
                gst_clock_id_unref(done);
            g_usleep(settle_us);
        }
        gst_test_clock_set_time(test, to);
    }
    void arrive(std::size_t number, std::int16_t const* samples, GstClockTime at) {
        unsigned char packet[12 + 2 * packet_samples] = {0x80, 96};
        auto const timestamp = static_cast<unsigned>(number * packet_samples);
        GST_WRITE_UINT16_BE(packet + 2, static_cast<guint16>(number + 1));
        GST_WRITE_UINT32_BE(packet + 4, timestamp);
        GST_WRITE_UINT32_BE(packet + 8, 0xFA12E9D);
        for (std::size_t i = 0; i < packet_samples; i++)
            GST_WRITE_UINT16_BE(packet + 12 + 2 * i, static_cast<guint16>(samples[i]));
        GstBuffer* const buffer = gst_buffer_new_memdup(packet, sizeof packet);
        GST_BUFFER_PTS(buffer) = GST_BUFFER_DTS(buffer) = at;
        GstFlowReturn result;
        g_signal_emit_by_name(find("source"), "push-buffer", buffer, &result);
        gst_buffer_unref(buffer);
        g_usleep(settle_us);
    }
    sound const& heard() const { return ear; }

private:
    std::string description() const {
        return "appsrc name=source is-live=true format=time caps=application/x-rtp,media=audio,clock-rate=8000,"
               "encoding-name=L16,channels=1,payload=96 ! rtpjitterbuffer do-lost=true latency=" +
               std::to_string(latency_ms) +
               " ! rtpL16depay ! audioconvert ! audio/x-raw,format=S16LE ! spanplc ! audiorate skip-to-first=true"
               " ! fakesink name=sink sync=false signal-handoffs=true";
    }
    GstElement* find(char const* name) {
        GstElement* const element = gst_bin_get_by_name(GST_BIN(pipeline), name);
        gst_object_unref(element);  // the pipeline keeps it
        return element;
    }
    static void hear(GstElement*, GstBuffer* buffer, GstPad*, gpointer self) {
        auto& one = *static_cast<player*>(self);
        GstClockTime const at = GST_BUFFER_PTS(buffer) + static_cast<GstClockTime>(one.latency_ms) * GST_MSECOND;
        std::size_t position = gst_util_uint64_scale_round(at, sample_rate, GST_SECOND);
        GstMapInfo map;
        gst_buffer_map(buffer, &map, GST_MAP_READ);
        for (gsize i = 0; i + 1 < map.size; i += 2, position++)
            if (position < one.ear.size())
                one.ear[position] = static_cast<std::int16_t>(GST_READ_UINT16_LE(map.data + i));
        gst_buffer_unmap(buffer, &map);
    }

    int latency_ms;
    GstClock* clock;
    GstElement* pipeline;
    sound ear = sound(std::size_t{seconds} * sample_rate);
};

struct arrival {
    GstClockTime at;
    std::size_t number;
    auto operator<=>(arrival const&) const = default;
};

std::vector<arrival> read_arrivals() {
    std::vector<arrival> all;
    std::int64_t at_us = 0;
    for (std::size_t number = 0; std::cin >> at_us; number++)
        if (at_us >= 0)
            all.push_back({static_cast<GstClockTime>(at_us) * GST_USECOND, number});
    std::sort(all.begin(), all.end());
    return all;
}

}  // namespace

int main(int argc, char** argv) {
    gst_init(&argc, &argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: impairment_gstreamer LATENCY_MS SAID HEARD < arrivals\n");
        return EXIT_FAILURE;
    }
    sound const said = read(argv[2]);
    player one(std::atoi(argv[1]));
    for (auto const& [at, number] : read_arrivals()) {
        one.advance(at);
        if ((number + 1) * packet_samples <= said.size())
            one.arrive(number, said.data() + number * packet_samples, at);
    }
    one.advance((seconds + 2) * GST_SECOND);
    std::ofstream(argv[3], std::ios::binary)
        .write(reinterpret_cast<char const*>(one.heard().data()),
               static_cast<std::streamsize>(one.heard().size() * sizeof(std::int16_t)));
}

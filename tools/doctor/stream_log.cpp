#include "tools/doctor/stream_log.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "lib/protocol.h"
#include "lib/wire.h"

namespace doctor {
namespace {

using protocol::byte_view;
using protocol::bytes;

constexpr std::size_t rtp_header_bytes = 12;
constexpr double rtp_clock_hz = 8000;
constexpr double full_scale = 32768;
constexpr std::size_t frame_samples = 800;  // 100 ms

/// Where the payload of an RTP packet begins (RFC 3550 section 5.1); 0: it is none.
std::size_t payload_offset(byte_view packet) {
    if (packet.size() < rtp_header_bytes || packet[0] >> 6 != 2)
        return 0;
    std::size_t at = rtp_header_bytes + 4u * (packet[0] & 15u);
    if ((packet[0] & 0x10) != 0 && packet.size() >= at + 4)
        at += 4 + 4u * wire::get16(packet.data() + at + 2);
    return at <= packet.size() ? at : 0;
}

/// G.711 tables 1a to 2b.
double mu_law(std::uint8_t code) {
    unsigned const bits = ~code & 0xFFu;
    int const magnitude = static_cast<int>((((bits & 15) << 3) + 0x84) << (bits >> 4 & 7)) - 0x84;
    return (bits & 0x80) != 0 ? -magnitude : magnitude;
}
double a_law(std::uint8_t code) {
    unsigned const bits = code ^ 0x55u;
    unsigned const segment = bits >> 4 & 7;
    int const magnitude =
        static_cast<int>(segment == 0 ? (bits & 15) * 16 + 8 : ((bits & 15) * 16 + 264) << (segment - 1));
    return (bits & 0x80) != 0 ? magnitude : -magnitude;
}

std::vector<double> decode(std::vector<bytes> const& payloads, double (*law)(std::uint8_t)) {
    std::vector<double> samples;
    for (bytes const& one : payloads)
        for (std::uint8_t const code : one)
            samples.push_back(law(code));
    return samples;
}

/// How rough a sound is: the energy of its second difference against its own.
double roughness(std::vector<double> const& samples) {
    double difference = 0, energy = 1;
    for (std::size_t i = 2; i < samples.size(); i++) {
        difference += std::pow(samples[i] - 2 * samples[i - 1] + samples[i - 2], 2);
        energy += samples[i] * samples[i];
    }
    return difference / energy;
}

/// How unevenly codes are spread over the eight segments: neighbours differ little where the law is the right one, and
/// the wrong one swaps segments.
double unevenness(std::vector<bytes> const& payloads, bool a_law) {
    double counts[8] = {}, total = 1;
    for (bytes const& one : payloads)
        for (std::uint8_t const code : one) {
            counts[((a_law ? code ^ 0x55 : ~code) >> 4) & 7]++;
            total++;
        }
    double sum = 0;
    for (int i = 0; i < 7; i++)
        sum += std::abs(counts[i + 1] - counts[i]) / total;
    return sum;
}

double level_dbfs(double const* samples, std::size_t count) {
    double power = 0;
    for (std::size_t i = 0; i < count; i++)
        power += samples[i] * samples[i];
    return 10 * std::log10(std::max(power / static_cast<double>(count) / (full_scale * full_scale), 1e-10));
}

/// Bytes of 10 ms where every packet must have a multiple of them; 0: no such rule.
std::size_t bytes_of_10_ms(int codec) {
    using namespace protocol::codec_number;
    return codec == pcmu || codec == pcma || codec == g722 ? 80 : codec == g726 ? 40 : 0;
}

int static_codec(int payload_type) {
    for (protocol::codec_format const& one : protocol::codec_formats)
        if (one.payload_type == payload_type && payload_type < 96)
            return one.number;
    return -1;
}

}  // namespace

bool measure_drift(std::vector<std::pair<double, std::uint32_t>> const& packets, double& ppm, double& doubt_ppm) {
    constexpr int parts = 8;
    constexpr double shortest_s = 3.5, longest_delay_s = 1, least_doubt_ppm = 50;
    constexpr std::size_t fewest_packets = 80;
    if (packets.size() < fewest_packets || packets.back().first - packets.front().first < shortest_s)
        return false;
    double const begin = packets.front().first, length = packets.back().first - begin;
    double best[parts], at[parts];
    std::fill_n(best, parts, 2 * longest_delay_s);
    for (auto const& [time, stamp] : packets) {
        double const sent_s = static_cast<std::int32_t>(stamp - packets.front().second) / rtp_clock_hz;
        double const delay = time - begin - sent_s;
        int const part = std::min(static_cast<int>((time - begin) / length * parts), parts - 1);
        if (std::abs(delay) > longest_delay_s)
            return false;  // timestamps jump: not one recording
        if (delay < best[part]) {
            best[part] = delay;
            at[part] = time - begin;
        }
    }
    if (*std::max_element(best, best + parts) > longest_delay_s)
        return false;
    double const slope = (best[parts - 1] - best[0]) / (at[parts - 1] - at[0]);
    double least = std::abs(slope);  // of the parts, in the same direction
    for (int i = 1; i < parts; i++)
        least = std::min(least, std::copysign(1.0, slope) * (best[i] - best[i - 1]) / (at[i] - at[i - 1]));
    ppm = -1e6 * slope;
    doubt_ppm = std::max(least_doubt_ppm, 1e6 * (std::abs(slope) - least));
    return true;
}

stream::sound analyse_sound(std::vector<bytes> const& payloads, bool is_a_law) {
    std::vector<double> const announced = decode(payloads, is_a_law ? a_law : mu_law);
    stream::sound found;
    double quietest = 0;
    for (std::size_t at = 0; at + frame_samples <= announced.size(); at += frame_samples) {
        double const level = level_dbfs(announced.data() + at, frame_samples);
        found.level_dbfs = std::max(found.level_dbfs, level);
        quietest = std::min(quietest, level);
    }
    found.dynamic_db = found.level_dbfs - quietest;
    auto const one_value = [](bytes const& one) {
        return std::ranges::adjacent_find(one, std::not_equal_to{}) == one.end();
    };
    found.digital_silence = static_cast<double>(std::ranges::count_if(payloads, one_value)) /
                            static_cast<double>(std::max<std::size_t>(payloads.size(), 1));
    double const end_of_scale = is_a_law ? a_law(0xAA) : mu_law(0x80);
    found.clipped =
        static_cast<double>(std::ranges::count_if(announced, [&](double s) { return std::abs(s) >= end_of_scale; })) /
        static_cast<double>(std::max<std::size_t>(announced.size(), 1));
    constexpr double clearly = 1.15;
    if (unevenness(payloads, is_a_law) > clearly * unevenness(payloads, !is_a_law))
        found.other_law_smoother =
            roughness(announced) / std::max(roughness(decode(payloads, is_a_law ? mu_law : a_law)), 1e-6);
    return found;
}

bool looks_encrypted(std::vector<bytes> const& payloads) {
    constexpr double fewest_bytes = 2000, even_enough = 400;  // chi-square of 256 values: 255 on average, +- 23
    double counts[256] = {}, total = 0, chi_square = 0;
    for (bytes const& one : payloads)
        for (std::uint8_t const byte : one) {
            counts[byte]++;
            total++;
        }
    for (double const count : counts)
        chi_square += (count - total / 256) * (count - total / 256) / (total / 256 + 1e-9);
    return total >= fewest_bytes && chi_square < even_enough;
}

void stream_log::add(seen_datagram const& one, double time_s, protocol::address const& far_end) {
    std::size_t const at = payload_offset(one.payload);
    if (at == 0)
        return;
    std::uint32_t const ssrc = wire::get32(one.payload.data() + 8);
    int const payload_type = one.payload[1] & 0x7F;
    std::string const other = protocol::to_text(far_end);
    track& kept = tracks[{other, ssrc, payload_type}];
    stream& facts = kept.facts;
    if (facts.packets++ == 0) {
        facts.first_s = time_s;
        facts.from = protocol::to_text(one.from);
        facts.to = protocol::to_text(one.to);
        facts.to_port = one.to.port;
        facts.ssrc = ssrc;
        facts.payload_type = static_cast<std::uint8_t>(payload_type);
    }
    facts.last_s = time_s;
    facts.payload_bytes = one.payload.size() - at;
    kept.packets.push_back({time_s,
                            wire::get32(one.payload.data() + 4),
                            {one.payload.begin() + static_cast<std::ptrdiff_t>(at), one.payload.end()}});
    constexpr std::size_t most_packets = 6000;  // two minutes
    if (kept.packets.size() > most_packets)
        kept.packets.pop_front();
}

stream stream_log::finish(track const& one, int codec) {
    stream facts = one.facts;
    std::vector<bytes> payloads;
    std::vector<std::pair<double, std::uint32_t>> times;
    for (packet const& each : one.packets) {
        payloads.push_back(each.payload);
        times.emplace_back(each.time_s, each.timestamp);
    }
    using namespace protocol::codec_number;
    bool const g711 = codec == pcmu || codec == pcma;
    facts.looks_encrypted = g711 && looks_encrypted(payloads);
    double ppm = 0;
    if (measure_drift(times, ppm, facts.drift_doubt_ppm))
        facts.drift_ppm = ppm;
    std::size_t const block = bytes_of_10_ms(codec);
    if (!facts.looks_encrypted && block != 0)
        facts.odd_lengths = static_cast<unsigned>(
            std::ranges::count_if(payloads, [&](bytes const& each) { return each.size() % block != 0; }));
    if (!facts.looks_encrypted && g711)
        facts.heard = analyse_sound(payloads, codec == pcma);
    return facts;
}

std::vector<stream> stream_log::streams(std::map<int, int> const& codecs) const {
    std::vector<stream> all;
    for (auto const& [name, one] : tracks) {
        auto const known = codecs.find(one.facts.payload_type);
        all.push_back(finish(one, known != codecs.end() ? known->second : static_codec(one.facts.payload_type)));
    }
    std::ranges::sort(all, std::greater{}, &stream::packets);
    return all;
}

}  // namespace doctor

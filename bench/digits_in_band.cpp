// How many of the twelve digits that a channel sends in band an independent detector (libspandsp) reads, by codec,
// without and with extensions, next to those of an independent generator (libspandsp too) on the same way, as a
// Markdown table on standard output. Each digit is sent alone, half a second of silence behind it.
//
//     digits_in_band [FOLDER]      writes what the far end hears into it, too, as raw 16-bit samples at 8 kHz

#include <spandsp.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "codecs/codec.h"
#include "lib/extensions.h"
#include "lib/pcm.h"
#include "media/digit_sender.h"

namespace {

constexpr char keys[] = "0123456789*#";
constexpr int period_blocks = 50, gap_blocks = 50;  // of 10 ms
constexpr int tone_ms = 380, tone_dbm0 = -13;       // of the reference: as ours with the extension

using blocks = std::string;  ///< 16-bit samples

blocks ours(int digit) {
    digit_sender sender;
    sender.add(digit);
    str const sent = sender.replace(str('\0', period_blocks * pcm::block_bytes));
    return {reinterpret_cast<char const*>(sent.cbuffer()), static_cast<std::size_t>(sent.length())};
}

blocks reference(int digit) {
    dtmf_tx_state_t* const generator = dtmf_tx_init(nullptr);
    dtmf_tx_set_level(generator, tone_dbm0, 0);
    dtmf_tx_set_timing(generator, tone_ms, tone_ms);
    dtmf_tx_put(generator, std::string(1, keys[digit]).c_str(), 1);
    blocks sent(period_blocks * pcm::block_bytes, '\0');
    dtmf_tx(generator, reinterpret_cast<std::int16_t*>(sent.data()), static_cast<int>(sent.size() / 2));
    dtmf_tx_free(generator);
    return sent;
}

/// As the far end hears it, through the coder of a call.
blocks through(codec& coder, int number, blocks const& sent) {
    blocks const said = sent + blocks(gap_blocks * pcm::block_bytes, '\0');
    constexpr std::size_t packet_bytes = 2 * pcm::block_bytes;
    blocks heard;
    for (std::size_t at = 0; at < said.size(); at += packet_bytes) {
        str const pcm(reinterpret_cast<unsigned char const*>(said.data()) + at, packet_bytes);
        str const back = coder.decode(number, coder.encode(number, pcm));
        heard.append(reinterpret_cast<char const*>(back.cbuffer()), static_cast<std::size_t>(back.length()));
    }
    return heard;
}

/// What the detector reads.
std::string detected(blocks const& samples) {
    dtmf_rx_state_t* const detector = dtmf_rx_init(nullptr, nullptr, nullptr);
    dtmf_rx(detector, reinterpret_cast<std::int16_t const*>(samples.data()), static_cast<int>(samples.size() / 2));
    char read[64] = "";
    dtmf_rx_get(detector, read, sizeof read - 1);
    dtmf_rx_free(detector);
    return read;
}

blocks with_extension(int digit) {
    extensions.dtmf = true;
    blocks const sent = ours(digit);
    extensions.dtmf = false;
    return sent;
}

struct {
    char const* name;
    char const* heading;
    blocks (*sent)(int digit);
} constexpr senders[] = {
    {"ours", "ours", ours}, {"dtmf", "`--extensions dtmf`", with_extension}, {"reference", "reference", reference}};

}  // namespace

int main(int argc, char** argv) {
    constexpr struct {
        char const* name;
        int number;
    } codecs[] = {{"linear", codec::linear}, {"G.711 mu-law", codec::mu_law}, {"G.711 A-law", codec::a_law},
                  {"G.722", codec::g722_64}, {"G.726", codec::g726_32},       {"GSM", codec::gsm_full_rate},
                  {"G.729A", codec::g729}};
    std::printf("| digits read of 12 |");
    for (auto const& sender : senders)
        std::printf(" %s |", sender.heading);
    std::puts("\n|---|--:|--:|--:|");
    for (auto const& [name, number] : codecs) {
        std::printf("| %s |", name);
        for (auto const& sender : senders) {
            codec coder;
            int right = 0;
            blocks all;
            for (int digit = 0; digit < 12; digit++) {
                blocks const heard = through(coder, number, sender.sent(digit));
                right += detected(heard) == std::string(1, keys[digit]);
                all += heard;
            }
            std::printf(" %d |", right);
            if (argc > 1)
                std::ofstream(std::string(argv[1]) + '/' + name + ' ' + sender.name + ".raw") << all;
        }
        std::puts("");
    }
}

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "lib/random.h"
#include "media/channel.h"
#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

/// Eight idle channels and a call control that listens, for each test afresh; the random numbers are the same in
/// every run.
class media_fixture : public testing::Test {
protected:
    explicit media_fixture(int log_threshold = -1) : peer(log_threshold) {
        utils::seed_rand(20240229);
        channels.resize(channel_count);
        for (int i = 0; i < channel_count; i++) {
            channels[i].set_id(i);
            channels[i].init();
        }
    }
    ~media_fixture() override {
        for (int i = 0; i < channel_count; i++)
            channels[i].init();
        channels.clear();
        ipv4 = ipv6 = true;
    }

    control_peer peer;
};

/// PCM of which every sample is `value`; 80 samples are 10 ms.
inline std::string pcm_of(int value, int samples = 80) {
    auto const sample = static_cast<std::int16_t>(value);
    std::string bytes;
    for (int i = 0; i < samples; i++)
        bytes.append(reinterpret_cast<char const*>(&sample), sizeof sample);
    return bytes;
}

/// First sample of a block.
inline int first_sample(std::string_view pcm) {
    std::int16_t sample = 0;
    pcm.copy(reinterpret_cast<char*>(&sample), sizeof sample);
    return sample;
}

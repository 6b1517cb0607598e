#pragma once

#include <cstdint>

#include "media/background.h"
#include "media/noise.h"
#include "media/speech_queue.h"

/// Speech for packets that did not come, made of the speech before (waveform substitution in the manner of ITU-T G.711
/// Appendix I): the last pitch period is repeated, after 10 ms the last two, after 20 ms the last three, so that it
/// does not buzz. After 20 ms it fades, within 200 ms, into the noise behind the speech. That fades as well from 2 s to
/// 4 s. What follows is faded in. Unlike the appendix, which fades to silence at 60 ms and whose first overlap delays
/// all speech by 3.75 ms, the step at the beginning is spread over a quarter period. Allocates nothing.
///
/// In a pause of which the far end tells the noise (RFC 3389), speech ends within 20 ms and the noise goes on.
class concealment {
public:
    /// 80 samples of speech were received: learns the noise behind it.
    void hear(std::int16_t const* block) { behind.hear(block); }
    /// Whether speech or noise is being made up.
    bool is_active() const { return made >= 0; }
    /// Whether only noise is left.
    bool has_faded() const { return made >= faded_after; }
    /// Whether that has faded, too, as it has before any speech.
    bool is_silent() const { return made >= silent_after; }
    /// Whether the far end has told of a pause.
    bool is_pausing() const { return pausing; }
    /// What is at the end of the queue is followed by silence.
    void fall_silent();
    /// What is at the end of the queue is followed by the noise behind the speech.
    void fall_quiet();
    /// The far end pauses and this noise is to be heard.
    void pause(noise_shape const& told);
    /// Adds n samples that continue what is at the end of the queue.
    void extend(speech_queue& queue, int n);
    /// The last n samples of the queue are good again, after a gap (or a jump in what was good): fades them in over
    /// what would have gone on before them.
    void merge(speech_queue& queue, int n);
    /// A coder made up the gap, and what follows continues it.
    void end() {
        made = -1;
        pausing = false;
    }

private:
    static constexpr int faded_after = 1600;    ///< samples, 200 ms
    static constexpr int silent_after = 32000;  ///< 4 s
    static constexpr int shortest_pitch = 40;   ///< samples: 200 Hz
    static constexpr int most_periods = 3;
    static constexpr int longest = speech_queue::longest_period;

    void begin(std::int16_t const* end_of_speech);
    int repeat_next();
    void repeat(int count);
    std::int16_t next();
    int gain() const;
    int noise_gain() const;

    std::int16_t history[(most_periods + 1) * longest];  ///< the last one before the gap
    std::int16_t repeated[most_periods * longest];       ///< the last periods, their end joined to their beginning
    std::int16_t before[longest / 4];                    ///< what would have gone on when one more period was added
    int period = shortest_pitch;                         ///< samples
    int length = 0;                                      ///< of `repeated`
    int at = 0;                                          ///< in `repeated`
    int made = silent_after;                             ///< samples so far; -1: not active
    int step = 0;                                        ///< between the last sample and the first made one
    bool pausing = false;                                ///< the far end told of a pause
    background behind;
    noise_generator noise;
};

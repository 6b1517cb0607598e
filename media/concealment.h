#pragma once

#include <cstdint>

#include "media/speech_queue.h"

/// Speech for packets that did not come, made of the speech before (waveform substitution in the manner of ITU-T G.711
/// Appendix I): the last pitch period is repeated, after 10 ms the last two, after 20 ms the last three, so that it
/// does not buzz. After 10 ms it fades, to silence at 60 ms. What follows is faded in. Unlike the appendix, whose first
/// overlap delays all speech by 3.75 ms, the step at the beginning is spread over a quarter period. Allocates nothing.
class concealment {
public:
    /// Whether speech is being made up.
    bool is_active() const { return made >= 0; }
    /// Whether it has faded away, as it has before any speech.
    bool is_silent() const { return made >= silent_after; }
    /// What is at the end of the queue is followed by silence.
    void fall_silent() { made = silent_after; }
    /// Adds n samples that continue what is at the end of the queue.
    void extend(speech_queue& queue, int n);
    /// The last n samples of the queue are good again, after a gap (or a jump in what was good): fades them in over
    /// what would have gone on before them.
    void merge(speech_queue& queue, int n);
    /// A coder made up the gap, and what follows continues it.
    void end() { made = -1; }

private:
    static constexpr int silent_after = 480;   ///< samples, 60 ms
    static constexpr int shortest_pitch = 40;  ///< samples: 200 Hz
    static constexpr int most_periods = 3;
    static constexpr int longest = speech_queue::longest_period;

    void begin(std::int16_t const* end_of_speech);
    void repeat(int count);
    std::int16_t next();
    int gain() const;

    std::int16_t history[(most_periods + 1) * longest];  ///< the last one before the gap
    std::int16_t repeated[most_periods * longest];       ///< the last periods, their end joined to their beginning
    std::int16_t before[longest / 4];                    ///< what would have gone on when one more period was added
    int period = shortest_pitch;                         ///< samples
    int length = 0;                                      ///< of `repeated`
    int at = 0;                                          ///< in `repeated`
    int made = silent_after;                             ///< samples so far; -1: not active
    int step = 0;                                        ///< between the last sample and the first made one
};

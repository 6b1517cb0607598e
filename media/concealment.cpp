#include "media/concealment.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int compared = 160;       // samples, 20 ms
constexpr int full_until = 160;     // samples: what is repeated fades from here on
constexpr int noise_until = 16000;  // 2 s: the noise fades from here on
constexpr int ending = 160;         // speech that a pause ends
constexpr int another_period = 80;  // samples after which one more is repeated
constexpr int shortest_merge = 32;  // 4 ms, and as much more for each 10 ms of the gap
constexpr int longest_merge = 80;   // 10 ms
constexpr int unity = 1 << 14;

std::int16_t clip(int sample) {
    return static_cast<std::int16_t>(std::clamp(sample, -32768, 32767));
}

}  // namespace

void concealment::fall_silent() {
    made = silent_after;
    pausing = false;
}

void concealment::fall_quiet() {
    made = faded_after;
    noise.set(behind.get_shape());
}

void concealment::pause(noise_shape const& told) {
    noise.set(told);
    pausing = true;
}

void concealment::begin(std::int16_t const* end_of_speech) {
    constexpr int kept = sizeof history / sizeof history[0];
    static_assert(compared + longest <= speech_queue::remembered && kept <= speech_queue::remembered);
    int alike = 0;
    period = speech_queue::find_period(end_of_speech - compared, compared, shortest_pitch, longest, true, alike);
    std::memcpy(history, end_of_speech - kept, sizeof history);
    at = made = 0;
    repeat(1);
    step = history[kept - 1] - history[kept - 1 - period];
    if (!pausing)
        noise.set(behind.get_shape());
}

/// Makes the last `count` periods the ones that are repeated. The last quarter is faded into what went before the
/// first, so that the end joins the beginning.
void concealment::repeat(int count) {
    constexpr int kept = sizeof history / sizeof history[0];
    int const quarter = period / 4;
    length = count * period;
    std::int16_t const* const first = history + kept - length;
    std::memcpy(repeated, first, sizeof(std::int16_t) * static_cast<unsigned>(length));
    for (int k = 0; k < quarter; k++)
        repeated[length - quarter + k] = cross_fade(first[length - quarter + k], first[k - quarter], k, quarter);
}

int concealment::gain() const {
    int const faded = pausing ? ending : faded_after, full = pausing ? 0 : full_until;
    return made < full ? unity : std::max(0, unity - (made - full) * unity / (faded - full));
}

int concealment::noise_gain() const {
    if (made < noise_until)
        return unity - gain();
    return static_cast<int>(std::int64_t{silent_after - made} * unity / (silent_after - noise_until));
}

std::int16_t concealment::next() {
    if (made >= silent_after)
        return 0;
    int const hum = noise.next() * noise_gain() / unity;
    if (made < faded_after)
        return clip(repeat_next() + hum);
    made += pausing ? 0 : 1;
    return clip(hum);
}

int concealment::repeat_next() {
    int const quarter = period / 4;
    int const since_more = made % another_period;
    int const fresh = made / another_period;
    int sample = repeated[at];
    if (made >= another_period && fresh < most_periods && since_more < quarter)
        sample = cross_fade(before[since_more], sample, since_more, quarter);
    if (made < quarter)
        sample += step * (quarter - made) / quarter;
    sample = sample * gain() / unity;
    at = (at + 1) % length;
    if (++made % another_period == 0 && made / another_period < most_periods) {
        for (int k = 0; k < quarter; k++)
            before[k] = repeated[(at + k) % length];
        at %= period;
        repeat(made / another_period + 1);
    }
    return sample;
}

void concealment::extend(speech_queue& queue, int n) {
    if (!is_active())
        begin(queue.back());
    std::int16_t* const out = queue.grow(n);
    for (int i = 0; i < n; i++)
        out[i] = next();
}

void concealment::merge(speech_queue& queue, int n) {
    std::int16_t* const good = queue.grow(0) - n;
    if (!is_active())
        begin(good);
    int const wanted = shortest_merge + made / another_period * shortest_merge;
    int const faded = std::min({n, wanted, longest_merge});
    for (int k = 0; k < faded; k++)
        good[k] = cross_fade(next(), good[k], k, faded);
    end();
}

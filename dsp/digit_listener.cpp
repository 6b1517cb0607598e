#include "dsp/digit_listener.h"

#include "lib/pcm.h"

namespace {

constexpr char keys[] = "0123456789*#ABCD";
constexpr int least_tone_percent = 40;  // chosen: frequencies 1.8 % off still count, speech does not

str silence() {
    return str('\0', pcm::block_bytes);
}

}  // namespace

void digit_listener::clear() {
    detector.clear();
    late[0] = late[1] = silence();
    block_begun = false;
    last = before = 0;
}

int digit_listener::event_of(char key) {
    int code = 0;
    while (keys[code] != key)
        code++;
    return code;
}

/// What the detector's newest block is.
char digit_listener::classify() const {
    char const heard = detector.get_latest();
    bool const is_key =
        (heard >= '0' && heard <= '9') || heard == '*' || heard == '#' || (heard >= 'A' && heard <= 'D');
    return is_key && detector.tone_percent() >= least_tone_percent ? heard : '\0';
}

digit_listener::result digit_listener::hear(str const& block) {
    result out;
    str newest = block;
    detector.add_samples(block);
    block_begun = !block_begun;
    if (!block_begun) {
        detector.forget_detected();
        char const now = classify();
        bool const was_pressed = last != 0 && last == before;
        if (now)
            late[0] = silence();  // the tone may have begun in the block before
        if (now || was_pressed)   // or end in this one
            late[1] = newest = silence();
        if (now && now == last && now != before)
            out.key = now;
        before = last;
        last = now;
    }
    out.cleaned = late[0];
    late[0] = late[1];
    late[1] = newest;
    return out;
}

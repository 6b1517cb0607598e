#pragma once

#include <cstdint>

#include "media/arrival_delays.h"

/// How long the packets of a stream wait for the line, and how long they should. What is wanted follows the
/// distribution of their delays (arrival_delays). Two things add to it: samples that turn out late that the
/// distribution does not explain (`shortage`), and for a while after a block was short of time, a block more
/// (`caution`).
///
/// The delay itself is not set but measured, packet by packet: whoever leaves out or puts in samples tells it (move()).
/// All times are ticks of 8 kHz. Reads no clock.
class playout_delay {
public:
    /// Where a packet stood when it came.
    struct arrival {
        std::uint32_t timestamp = 0;  ///< RTP
        std::uint32_t at = 0;         ///< time
        int until_taken = 0;          ///< ticks until the line takes the next block that is not given out
        int ahead = 0;                ///< samples of that block and later ones before the packet's first one
        bool missed = false;          ///< a block was given out without it, and had been waited for as long as it could
    };

    /// Another stream follows. `transit`: time of arrival less RTP timestamp of its first packet.
    void restart(std::uint32_t transit);
    /// A packet came.
    void add(arrival const& packet);
    /// The line played 10 ms.
    void pass_block();
    /// The delay became this much longer (below 0: shorter).
    void move(int by);

    /// What is wanted.
    int wanted() const;
    /// What the delay is too much, or, below 0, too little.
    int surplus() const;
    /// Whether it is so much too little that something should be done.
    bool is_short() const { return surplus() <= least_surplus; }
    /// What it may be lowered by so that it is still enough; 0: nothing.
    int allowed_cut() const;
    /// What makes up for a delay that is too little, if there is a period of that length.
    int wanted_stretch() const;

    /// The line had nothing to play, or what it got was decided too early: a block more is kept for 30 s, twice as long
    /// each time that this turns out too short.
    void note_trouble();
    /// Whether it is kept: then nothing should be waited for.
    bool is_careful() const { return careful > 0; }
    /// A part of a packet was late.
    void note_late_part();

private:
    static constexpr int least_surplus = -20;                   ///< ticks, 2.5 ms
    static constexpr int first_caution = 240000;                ///< ticks, 30 s
    static constexpr int longest_caution = 60 * first_caution;  ///< half an hour

    /// The time from a packet's arrival until the line takes the block that its first sample is in, plus the packet's
    /// transit time (against a reference one), and how far behind that block's beginning the sample is, ticks. Time is
    /// only won and lost in blocks: the delay may be lowered by `spare` for nothing.
    struct position {
        int slack = 0;
        int spare = 0;
    };
    void note_position(position const& measured);
    int spare() const;

    arrival_delays delays;
    position positions[2];        ///< the least of the last packets and of the 16 before them
    int packets_measured = 0;     ///< of the last 16
    std::uint32_t reference = 0;  ///< transit time
    int caution = first_caution;  ///< ticks for which blocks are expected to be short of time after one was
    int careful = 0;              ///< ticks that are left of them
    int shortage = 0;             ///< delay wanted beyond what the packets' delays say, 1/16 tick
    std::uint32_t line_time = 0;  ///< ticks that the line played
    std::uint32_t measured_at = 0, measured_arrival = 0;  ///< line's and packet's time at the last measurement
};

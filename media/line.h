#pragma once

/// What a channel asks of the line device that it is bound to. The device managers include the channels, never
/// the reverse, so the few calls in the other direction are declared here and defined by dsp/devmgr.cpp.
namespace line {

/// Index that stands for "no device".
constexpr int none = 4;

/// Whether there is a line device of this index.
bool valid(int device);
/// The channel's received audio goes to this device, the device's audio to the channel. Opens the device.
void attach(int device, int channel);
void detach(int device, int channel);
/// Discards the samples that the driver has queued for the line.
void tx_clear(int device);
/// The next read drops the backlog of captured audio.
void rx_clear(int device);

}  // namespace line

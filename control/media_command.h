#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// The media command: sets up what a call sends and receives, in groups (codec, destination, RTCP XR, SRTP). A group is applied
/// only when at least one of its fields is present; what is absent in a present group has its default.
void cmd_media(str const& command, ip_port const& source);

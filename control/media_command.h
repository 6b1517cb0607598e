#pragma once

#include "control/command_fields.h"

/// The media command: sets up what a call sends and receives, in groups (codec, destination, RTCP XR, SRTP). A group
/// is applied only when one of its triggering fields is present; what is absent in a present group has its default.
void cmd_media(command_fields const& fields, ip_port const& source);

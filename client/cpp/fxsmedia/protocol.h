#pragma once

// In the source tree; an installed tree has the table itself in this place.
#include "../../../lib/protocol.h"

#pragma once

#include "lib/timeout.h"

#pragma once

#include "OrvelKit/Base/FakeDefaults.h"

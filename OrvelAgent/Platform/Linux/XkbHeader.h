#pragma once

// xcb's header has a member with the name of a keyword.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "OrvelAgent/Platform/Linux/PhysicalKeys.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <iterator>

namespace orvel {

namespace {

struct Row {
    std::uint16_t virtualCode;
    PhysicalKey key;
};

// In the order of the virtual codes.
constexpr Row rows[] = {
    {0, {"AC01", KEY_A}},           {1, {"AC02", KEY_S}},
    {2, {"AC03", KEY_D}},           {3, {"AC04", KEY_F}},
    {4, {"AC06", KEY_H}},           {5, {"AC05", KEY_G}},
    {6, {"AB01", KEY_Z}},           {7, {"AB02", KEY_X}},
    {8, {"AB03", KEY_C}},           {9, {"AB04", KEY_V}},
    {10, {"LSGT", KEY_102ND}},      {11, {"AB05", KEY_B}},
    {12, {"AD01", KEY_Q}},          {13, {"AD02", KEY_W}},
    {14, {"AD03", KEY_E}},          {15, {"AD04", KEY_R}},
    {16, {"AD06", KEY_Y}},          {17, {"AD05", KEY_T}},
    {18, {"AE01", KEY_1}},          {19, {"AE02", KEY_2}},
    {20, {"AE03", KEY_3}},          {21, {"AE04", KEY_4}},
    {22, {"AE06", KEY_6}},          {23, {"AE05", KEY_5}},
    {24, {"AE12", KEY_EQUAL}},      {25, {"AE09", KEY_9}},
    {26, {"AE07", KEY_7}},          {27, {"AE11", KEY_MINUS}},
    {28, {"AE08", KEY_8}},          {29, {"AE10", KEY_0}},
    {30, {"AD12", KEY_RIGHTBRACE}}, {31, {"AD09", KEY_O}},
    {32, {"AD07", KEY_U}},          {33, {"AD11", KEY_LEFTBRACE}},
    {34, {"AD08", KEY_I}},          {35, {"AD10", KEY_P}},
    {36, {"RTRN", KEY_ENTER}},      {37, {"AC09", KEY_L}},
    {38, {"AC07", KEY_J}},          {39, {"AC11", KEY_APOSTROPHE}},
    {40, {"AC08", KEY_K}},          {41, {"AC10", KEY_SEMICOLON}},
    {42, {"BKSL", KEY_BACKSLASH}},  {43, {"AB08", KEY_COMMA}},
    {44, {"AB10", KEY_SLASH}},      {45, {"AB06", KEY_N}},
    {46, {"AB07", KEY_M}},          {47, {"AB09", KEY_DOT}},
    {48, {"TAB", KEY_TAB}},         {49, {"SPCE", KEY_SPACE}},
    {50, {"TLDE", KEY_GRAVE}},      {51, {"BKSP", KEY_BACKSPACE}},
    {52, {"KPEN", KEY_KPENTER}},  // Enter of old portables
    {53, {"ESC", KEY_ESC}},         {54, {"RWIN", KEY_RIGHTMETA}},
    {55, {"LWIN", KEY_LEFTMETA}},   {56, {"LFSH", KEY_LEFTSHIFT}},
    {57, {"CAPS", KEY_CAPSLOCK}},   {58, {"LALT", KEY_LEFTALT}},
    {59, {"LCTL", KEY_LEFTCTRL}},   {60, {"RTSH", KEY_RIGHTSHIFT}},
    {61, {"RALT", KEY_RIGHTALT}},   {62, {"RCTL", KEY_RIGHTCTRL}},
    {64, {"FK17", KEY_F17}},        {65, {"KPDL", KEY_KPDOT}},
    {67, {"KPMU", KEY_KPASTERISK}}, {69, {"KPAD", KEY_KPPLUS}},
    {71, {"NMLK", KEY_NUMLOCK}},  // Clear
    {72, {"VOL+", KEY_VOLUMEUP}},   {73, {"VOL-", KEY_VOLUMEDOWN}},
    {74, {"MUTE", KEY_MUTE}},       {75, {"KPDV", KEY_KPSLASH}},
    {76, {"KPEN", KEY_KPENTER}},    {78, {"KPSU", KEY_KPMINUS}},
    {79, {"FK18", KEY_F18}},        {80, {"FK19", KEY_F19}},
    {81, {"KPEQ", KEY_KPEQUAL}},    {82, {"KP0", KEY_KP0}},
    {83, {"KP1", KEY_KP1}},         {84, {"KP2", KEY_KP2}},
    {85, {"KP3", KEY_KP3}},         {86, {"KP4", KEY_KP4}},
    {87, {"KP5", KEY_KP5}},         {88, {"KP6", KEY_KP6}},
    {89, {"KP7", KEY_KP7}},         {90, {"FK20", KEY_F20}},
    {91, {"KP8", KEY_KP8}},         {92, {"KP9", KEY_KP9}},
    {93, {"AE13", KEY_YEN}},        {94, {"AB11", KEY_RO}},
    {95, {"KPPT", KEY_KPCOMMA}},    {96, {"FK05", KEY_F5}},
    {97, {"FK06", KEY_F6}},         {98, {"FK07", KEY_F7}},
    {99, {"FK03", KEY_F3}},         {100, {"FK08", KEY_F8}},
    {101, {"FK09", KEY_F9}},        {102, {"MUHE", KEY_MUHENKAN}},  // Eisu
    {103, {"FK11", KEY_F11}},       {104, {"HENK", KEY_HENKAN}},    // Kana
    {105, {"FK13", KEY_F13}},       {106, {"FK16", KEY_F16}},
    {107, {"FK14", KEY_F14}},       {109, {"FK10", KEY_F10}},
    {110, {"COMP", KEY_COMPOSE}},  // Menu
    {111, {"FK12", KEY_F12}},       {113, {"FK15", KEY_F15}},
    {114, {"INS", KEY_INSERT}},  // Help, where a PC has Insert
    {115, {"HOME", KEY_HOME}},      {116, {"PGUP", KEY_PAGEUP}},
    {117, {"DELE", KEY_DELETE}},    {118, {"FK04", KEY_F4}},
    {119, {"END", KEY_END}},        {120, {"FK02", KEY_F2}},
    {121, {"PGDN", KEY_PAGEDOWN}},  {122, {"FK01", KEY_F1}},
    {123, {"LEFT", KEY_LEFT}},      {124, {"RGHT", KEY_RIGHT}},
    {125, {"DOWN", KEY_DOWN}},      {126, {"UP", KEY_UP}},
};

}  // namespace

std::optional<PhysicalKey> physicalKey(std::uint16_t virtualCode) {
    const auto* found = std::lower_bound(
        std::begin(rows), std::end(rows), virtualCode,
        [](const Row& row, std::uint16_t wanted) { return row.virtualCode < wanted; });
    if (found == std::end(rows) || found->virtualCode != virtualCode) return std::nullopt;
    return found->key;
}

}  // namespace orvel

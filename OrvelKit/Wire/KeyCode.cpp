#include "OrvelKit/Wire/KeyCode.h"

#include <utility>

namespace orvel {

const std::map<std::string, std::uint16_t>& KeyCode::characters() {
    static const std::map<std::string, std::uint16_t> codes = {
        {"a", 0},   {"s", 1},  {"d", 2},  {"f", 3},  {"h", 4},  {"g", 5},  {"z", 6},  {"x", 7},
        {"c", 8},   {"v", 9},  {"b", 11}, {"q", 12}, {"w", 13}, {"e", 14}, {"r", 15}, {"y", 16},
        {"t", 17},  {"1", 18}, {"2", 19}, {"3", 20}, {"4", 21}, {"6", 22}, {"5", 23}, {"=", 24},
        {"9", 25},  {"7", 26}, {"-", 27}, {"8", 28}, {"0", 29}, {"]", 30}, {"o", 31}, {"u", 32},
        {"[", 33},  {"i", 34}, {"p", 35}, {"l", 37}, {"j", 38}, {"'", 39}, {"k", 40}, {";", 41},
        {"\\", 42}, {",", 43}, {"/", 44}, {"n", 45}, {"m", 46}, {".", 47}, {"`", 50}, {"ı", 34},
        {"ğ", 33},  {"ü", 30}, {"ş", 41}, {"ö", 43}, {"ç", 47},
    };
    return codes;
}

const std::map<int, std::uint16_t>& KeyCode::usages() {
    static const std::map<int, std::uint16_t> codes = [] {
        std::map<int, std::uint16_t> built;
        int usage = 4;
        for (const char key : std::string("abcdefghijklmnopqrstuvwxyz1234567890"))
            built[usage++] = characters().at(std::string(1, key));
        static constexpr std::pair<int, std::uint16_t> others[] = {
            {40, 36},  // Return
            {41, 53},  // Escape
            {42, 51},  // Delete
            {43, 48},  // Tab
            {44, 49},  // Space
            {45, 27},  // -
            {46, 24},  // =
            {47, 33},  // [
            {48, 30},  // ]
            {49, 42},  // backslash
            {50, 42},  // the ISO key beside Return
            {51, 41},  // ;
            {52, 39},  // '
            {53, 50},  // `
            {54, 43},  // ,
            {55, 47},  // .
            {56, 44},  // /
            {57, 57},  // Caps Lock
            {58, 122}, {59, 120}, {60, 99},  {61, 118}, {62, 96},  {63, 97},   // F1 to F6
            {64, 98},  {65, 100}, {66, 101}, {67, 109}, {68, 103}, {69, 111},  // F7 to F12
            {74, 115},                                                         // Home
            {75, 116},                                                         // Page Up
            {76, 117},                                                         // Forward Delete
            {77, 119},                                                         // End
            {78, 121},                                                         // Page Down
            {79, 124},                                                         // Right
            {80, 123},                                                         // Left
            {81, 125},                                                         // Down
            {82, 126},                                                         // Up
            {100, 10},  // the ISO key beside the left Shift
        };
        for (const auto& [key, code] : others)
            built[key] = code;
        return built;
    }();
    return codes;
}

}  // namespace orvel

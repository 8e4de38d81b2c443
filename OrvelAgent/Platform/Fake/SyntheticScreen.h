#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Fake/FakePixelBuffer.h"

namespace orvel {

// Draws what computer screens show, for tests and measurements of encoders: the same pictures for
// the same arguments on every machine.
class SyntheticScreen {
public:
    enum class Scene {
        still,   // a page of text, some of it coloured, beside a picture
        typing,  // that page; every tenth picture adds a letter, the caret blinks
        scroll,  // the text moves up by 12 rows a picture
        video,   // a film of two thirds of each edge on that page; a cut every 5 seconds
        film,    // the film fills the screen
        noise    // every pixel random: the worst there is
    };
    static const char* name(Scene scene);

    // Both lengths even.
    SyntheticScreen(int width, int height, Scene scene, std::uint32_t seed = 1);
    ~SyntheticScreen();

    // The next picture at 60 a second, with what differs from the one before.
    std::shared_ptr<const PixelBuffer> next();

private:
    struct Film;

    void drawPage(int firstLine, int top, int bottom);
    void drawLetter(int glyph, int x, int y, int top, int bottom, int ink, int paper);
    void fill(const Rect& area, int luma, int cb, int cr);
    int glyphAt(int line, int column) const;
    void typeLetter();
    void scroll();
    void noise();

    const int width, height;
    const Scene scene;
    const std::uint32_t seed;
    FakePixelBuffer canvas;
    std::unique_ptr<Film> film;
    std::vector<std::uint8_t> glyphs;  // 64 of 8×16, coverage 0 to 255
    std::mt19937 random;
    std::uint64_t pictures = 0;
    int scrolled = 0;  // rows
    int typed = 0;     // letters
};

}  // namespace orvel

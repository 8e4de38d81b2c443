#include "OrvelAgent/Platform/Fake/SyntheticScreen.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvel {

namespace {

constexpr int cellWidth = 8, cellHeight = 16, lineHeight = 20, glyphCount = 64;
constexpr int paperLuma = 232, inkLuma = 36, margin = 24;
constexpr int framesBetweenCuts = 300, framesBetweenLetters = 10, framesPerBlink = 30;
constexpr int rowsPerScroll = 12;

std::uint32_t mix(std::uint32_t value) {
    value ^= value >> 16;
    value *= 0x7FEB352Du;
    value ^= value >> 15;
    value *= 0x846CA68Bu;
    return value ^ value >> 16;
}

// Letters are a few straight strokes with soft edges, as small rendered text has.
std::vector<std::uint8_t> makeGlyphs(std::mt19937& random) {
    std::vector<std::uint8_t> glyphs(glyphCount * cellWidth * cellHeight, 0);
    std::uniform_real_distribution<float> x(0.8f, 6.2f), y(2.5f, 13.5f);
    for (int glyph = 0; glyph < glyphCount; ++glyph) {
        for (int stroke = 0; stroke < 3; ++stroke) {
            const float x0 = x(random), y0 = y(random);
            const bool upright = random() % 2 == 0;
            const float x1 = upright ? x0 : x(random), y1 = y(random);
            const float dx = x1 - x0, dy = y1 - y0;
            const float length2 = std::max(dx * dx + dy * dy, 0.01f);
            for (int row = 0; row < cellHeight; ++row) {
                for (int column = 0; column < cellWidth; ++column) {
                    const float px = column + 0.5f - x0, py = row + 0.5f - y0;
                    const float along = std::clamp((px * dx + py * dy) / length2, 0.0f, 1.0f);
                    const float away = std::hypot(px - along * dx, py - along * dy);
                    const int cover = static_cast<int>(255 * std::clamp(1.3f - away, 0.0f, 1.0f));
                    auto& pixel = glyphs[(glyph * cellHeight + row) * cellWidth + column];
                    pixel = static_cast<std::uint8_t>(std::max<int>(pixel, cover));
                }
            }
        }
    }
    return glyphs;
}

}  // namespace

// A camera moves over a rippling landscape of soft noise while a disc of another texture, growing
// and shrinking, crosses it; the light changes, and a little grain lies over everything.
struct SyntheticScreen::Film {
    static constexpr int edge = 1024;  // of the texture, which repeats
    Rect area;
    std::vector<std::uint8_t> texture;
    std::vector<std::int8_t> grain;
    std::mt19937 random;

    Film(const Rect& where, std::uint32_t seed) : area(where), texture(edge * edge), random(seed) {
        std::vector<float> sum(texture.size(), 0);
        for (int cell = 256, amplitude = 44; cell >= 2; cell /= 2, amplitude = amplitude * 3 / 4) {
            const int cells = edge / cell;
            std::vector<float> lattice(cells * cells);
            for (auto& corner : lattice)
                corner = static_cast<float>(random() % 2001) / 1000 - 1;
            const auto at = [&](int x, int y) { return lattice[(y % cells) * cells + x % cells]; };
            for (int y = 0; y < edge; ++y) {
                for (int x = 0; x < edge; ++x) {
                    const float fx = float(x % cell) / cell, fy = float(y % cell) / cell;
                    const int cx = x / cell, cy = y / cell;
                    const float upper = at(cx, cy) * (1 - fx) + at(cx + 1, cy) * fx;
                    const float lower = at(cx, cy + 1) * (1 - fx) + at(cx + 1, cy + 1) * fx;
                    sum[y * edge + x] += amplitude * (upper * (1 - fy) + lower * fy);
                }
            }
        }
        for (std::size_t i = 0; i < sum.size(); ++i)
            texture[i] = static_cast<std::uint8_t>(std::clamp(126 + sum[i], 20.0f, 232.0f));
        grain.resize(1 << 16);
        for (auto& speck : grain)
            speck = static_cast<std::int8_t>(static_cast<int>(random() % 5) - 2);
    }

    // In sixteenths of a pixel.
    int sample(int x16, int y16) const {
        const int x = x16 >> 4, y = y16 >> 4, fx = x16 & 15, fy = y16 & 15;
        const auto* upper = &texture[(y & (edge - 1)) * edge];
        const auto* lower = &texture[((y + 1) & (edge - 1)) * edge];
        const int left = x & (edge - 1), right = (x + 1) & (edge - 1);
        return ((upper[left] * (16 - fx) + upper[right] * fx) * (16 - fy) +
                (lower[left] * (16 - fx) + lower[right] * fx) * fy) >>
               8;
    }

    void draw(FakePixelBuffer& onto, std::uint64_t picture) {
        const auto shot = static_cast<int>(picture / framesBetweenCuts);
        const double t = static_cast<double>(picture % framesBetweenCuts) / 60;
        const int panX = static_cast<int>(16 * (shot * 331 + 90 * t + 30 * std::sin(2 * t)));
        const int panY = static_cast<int>(16 * (shot * 173 + 25 * t));
        const int zoom = static_cast<int>(16 * (1 + 0.3 * std::sin(0.7 * t + shot)));
        const int light = static_cast<int>(6 * std::sin(3 * t));
        const int radius = area.height / 4;
        const int discZoom = static_cast<int>(16 * (1.5 + 0.5 * std::sin(2.5 * t)));
        const int discX = area.x + static_cast<int>(area.width * (0.5 + 0.4 * std::sin(1.3 * t)));
        const int discY = area.y + static_cast<int>(area.height * (0.5 + 0.2 * std::cos(1.9 * t)));
        for (int y = area.y; y < area.y + area.height; ++y) {
            auto* row = &onto.lumaPixels[y * onto.lumaStride];
            const auto* specks = &grain[random() % (grain.size() - area.width)];
            const int ripple = static_cast<int>(40 * std::sin(y * 0.05 + 6 * t));
            for (int x = area.x; x < area.x + area.width; ++x) {
                const int dx = x - discX, dy = y - discY;
                const int pixel =
                    dx * dx + dy * dy < radius * radius
                        ? 255 - sample(dx * discZoom + 6400, dy * discZoom + shot * 1552)
                        : sample(x * zoom + panX + ripple, y * zoom + panY);
                row[x] = static_cast<std::uint8_t>(pixel + light + specks[x - area.x]);
            }
        }
        for (int y = area.y / 2; y < (area.y + area.height) / 2; ++y) {
            auto* row = &onto.chromaPixels[y * onto.chromaStride];
            for (int x = area.x / 2; x < (area.x + area.width) / 2; ++x) {
                const int tint = sample(x * 8 + panX / 4, y * 8 + panY / 4);
                row[2 * x] = static_cast<std::uint8_t>(96 + tint / 4);
                row[2 * x + 1] = static_cast<std::uint8_t>(160 - tint / 4);
            }
        }
    }
};

const char* SyntheticScreen::name(Scene scene) {
    switch (scene) {
        case Scene::still:
            return "still";
        case Scene::typing:
            return "typing";
        case Scene::scroll:
            return "scroll";
        case Scene::video:
            return "video";
        case Scene::film:
            return "film";
        case Scene::noise:
            return "noise";
    }
    return "";
}

SyntheticScreen::SyntheticScreen(int pictureWidth, int pictureHeight, Scene wantedScene,
                                 std::uint32_t wantedSeed)
    : width(pictureWidth),
      height(pictureHeight),
      scene(wantedScene),
      seed(wantedSeed),
      canvas(pictureWidth, pictureHeight),
      random(wantedSeed) {
    glyphs = makeGlyphs(random);
    drawPage(0, 0, height);
    const auto even = [](int length) { return length / 2 * 2; };
    if (scene == Scene::film) {
        film = std::make_unique<Film>(Rect{0, 0, width, height}, seed);
    } else if (scene == Scene::video) {
        film = std::make_unique<Film>(
            Rect{even(width / 6), even(height / 6), even(width * 2 / 3), even(height * 2 / 3)},
            seed);
    } else if ((scene == Scene::still || scene == Scene::typing) && width >= 640) {
        Film(Rect{even(width * 5 / 8), even(height / 8), even(width / 4), even(height / 3)}, seed)
            .draw(canvas, 0);
    }
}

SyntheticScreen::~SyntheticScreen() = default;

std::shared_ptr<const PixelBuffer> SyntheticScreen::next() {
    canvas.changed.clear();
    if (pictures == 0) canvas.changed = {{0, 0, width, height}};
    if (film) {
        film->draw(canvas, pictures);
        canvas.changed.push_back(film->area);
    } else if (scene == Scene::noise) {
        noise();
    } else if (scene == Scene::scroll && pictures > 0) {
        scroll();
    } else if (scene == Scene::typing) {
        if (pictures % framesBetweenLetters == 0) typeLetter();
        if (pictures % framesPerBlink == 0) {
            const Rect caret{margin, 0, 2, std::min(cellHeight, height)};
            fill(caret, pictures / framesPerBlink % 2 ? inkLuma : paperLuma, 128, 128);
            canvas.changed.push_back(caret);
        }
    }
    canvas.sequence = ++pictures;
    return std::make_shared<FakePixelBuffer>(canvas);
}

int SyntheticScreen::glyphAt(int line, int column) const {
    const auto key = mix(seed * 977 + static_cast<std::uint32_t>(line));
    const int indent = static_cast<int>(key % 5) * 4;
    const int length = static_cast<int>(key >> 8) % 110;
    if (column < indent || column > indent + length) return -1;
    const auto letter = mix(key + static_cast<std::uint32_t>(column) * 31);
    return letter % 6 == 0 ? -1 : static_cast<int>(letter >> 8) % glyphCount;
}

// The rows top to bottom - 1 of the page, scrolled so that `firstRow` of the text is on top.
void SyntheticScreen::drawPage(int firstRow, int top, int bottom) {
    fill({0, top, width, bottom - top}, paperLuma, 126, 129);
    const int firstLine = (firstRow + top) / lineHeight;
    const int lastLine = (firstRow + bottom - 1) / lineHeight;
    for (int line = firstLine; line <= lastLine; ++line) {
        const int y = line * lineHeight - firstRow;
        const bool isKeyword = mix(static_cast<std::uint32_t>(line) + 5) % 4 == 0;
        for (int column = 0; margin + (column + 1) * cellWidth <= width; ++column) {
            const int glyph = glyphAt(line, column);
            if (glyph < 0) continue;
            const int x = margin + column * cellWidth;
            drawLetter(glyph, x, y, top, bottom, inkLuma, paperLuma);
            if (!isKeyword || column > 30) continue;
            for (int row = std::max(y, top); row < std::min(y + cellHeight, bottom); row += 2) {
                auto* chroma = &canvas.chromaPixels[row / 2 * canvas.chromaStride + x];
                for (int i = 0; i < cellWidth; i += 2) {
                    chroma[i] = 156;
                    chroma[i + 1] = 108;
                }
            }
        }
    }
}

void SyntheticScreen::drawLetter(int glyph, int x, int y, int top, int bottom, int ink, int paper) {
    for (int row = std::max(0, top - y); row < std::min(cellHeight, bottom - y); ++row) {
        const auto* cover = &glyphs[(glyph * cellHeight + row) * cellWidth];
        auto* pixels = &canvas.lumaPixels[(y + row) * canvas.lumaStride + x];
        for (int i = 0; i < cellWidth; ++i)
            pixels[i] = static_cast<std::uint8_t>(paper + (ink - paper) * cover[i] / 255);
    }
}

void SyntheticScreen::fill(const Rect& area, int luma, int cb, int cr) {
    const int right = std::min(area.x + area.width, width);
    for (int y = area.y; y < std::min(area.y + area.height, height); ++y) {
        std::memset(&canvas.lumaPixels[y * canvas.lumaStride + area.x], luma,
                    static_cast<std::size_t>(std::max(0, right - area.x)));
        auto* chroma = &canvas.chromaPixels[y / 2 * canvas.chromaStride];
        for (int x = area.x / 2 * 2; x < right; x += 2) {
            chroma[x] = static_cast<std::uint8_t>(cb);
            chroma[x + 1] = static_cast<std::uint8_t>(cr);
        }
    }
}

void SyntheticScreen::typeLetter() {
    const int columns = std::max(1, (width / 2 - margin) / cellWidth);
    const int lines = std::max(1, height / 2 / lineHeight);
    const int column = typed % columns, line = typed / columns % lines;
    const Rect cell{margin + column * cellWidth, height / 3 + line * lineHeight, cellWidth,
                    cellHeight};
    ++typed;
    if (cell.x + cell.width > width || cell.y + cell.height > height) return;
    drawLetter(static_cast<int>(random() % glyphCount), cell.x, cell.y, 0, height, inkLuma,
               paperLuma);
    canvas.changed.push_back(cell);
}

void SyntheticScreen::scroll() {
    const int rows = std::min(rowsPerScroll, height / 2 * 2);
    const auto shift = [&](std::vector<std::uint8_t>& pixels, int stride, int by) {
        std::move(pixels.begin() + by * stride, pixels.end(), pixels.begin());
    };
    shift(canvas.lumaPixels, canvas.lumaStride, rows);
    shift(canvas.chromaPixels, canvas.chromaStride, rows / 2);
    scrolled += rows;
    drawPage(scrolled, height - rows, height);
    canvas.changed.push_back({0, 0, width, height});
}

void SyntheticScreen::noise() {
    const auto scatter = [this](std::vector<std::uint8_t>& pixels) {
        for (auto& pixel : pixels)
            pixel = static_cast<std::uint8_t>(16 + random() % 220);
    };
    scatter(canvas.lumaPixels);
    scatter(canvas.chromaPixels);
    canvas.changed = {{0, 0, width, height}};
}

}  // namespace orvel

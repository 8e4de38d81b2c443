#include "OrvelAgent/Platform/Linux/ChangedTiles.h"

#include <algorithm>
#include <bit>

namespace orvel {

namespace {

constexpr int wordBits = 64;

int tiles(int pixels) {
    return (pixels + ChangedTiles::tileSize - 1) / ChangedTiles::tileSize;
}

// The first column at or after `from` whose bit is `wanted`; `end` if there is none.
int findColumn(const std::uint64_t* row, int from, int end, bool wanted) {
    while (from < end) {
        const int offset = from % wordBits;
        std::uint64_t word = row[from / wordBits];
        if (!wanted) word = ~word;
        if (const std::uint64_t rest = word >> offset)
            return std::min(end, from + std::countr_zero(rest));
        from += wordBits - offset;
    }
    return end;
}

}  // namespace

ChangedTiles::ChangedTiles(int pictureWidth, int pictureHeight)
    : width(pictureWidth),
      height(pictureHeight),
      columns(tiles(pictureWidth)),
      rows(tiles(pictureHeight)),
      wordsPerRow((columns + wordBits - 1) / wordBits),
      bits(static_cast<std::size_t>(wordsPerRow) * rows) {}

void ChangedTiles::add(const Rect& changed) {
    const int left = std::max(changed.x, 0), top = std::max(changed.y, 0);
    const int right = std::min(changed.x + changed.width, width);
    const int bottom = std::min(changed.y + changed.height, height);
    if (left >= right || top >= bottom) return;
    const int firstColumn = left / tileSize, endColumn = tiles(right);
    for (int row = top / tileSize; row < tiles(bottom); ++row) {
        for (int column = firstColumn; column < endColumn;) {
            const int offset = column % wordBits;
            const int count = std::min(wordBits - offset, endColumn - column);
            const std::uint64_t run =
                count == wordBits ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
            bits[static_cast<std::size_t>(row) * wordsPerRow + column / wordBits] |= run << offset;
            column += count;
        }
    }
}

void ChangedTiles::add(const ChangedTiles& changed) {
    for (std::size_t i = 0; i < bits.size(); ++i)
        bits[i] |= changed.bits[i];
}

void ChangedTiles::addAll() {
    add(Rect{0, 0, width, height});
}

void ChangedTiles::clear() {
    std::fill(bits.begin(), bits.end(), 0);
}

bool ChangedTiles::isEmpty() const {
    return std::all_of(bits.begin(), bits.end(), [](std::uint64_t word) { return word == 0; });
}

std::vector<Rect> ChangedTiles::rects() const {
    std::vector<Rect> found;
    // Rectangles that reach down to the row above, from left to right: a run of the same columns
    // lengthens one instead of starting another.
    std::vector<std::size_t> open, nextOpen;
    for (int row = 0; row < rows; ++row) {
        const auto* word = &bits[static_cast<std::size_t>(row) * wordsPerRow];
        const int top = row * tileSize, bottom = std::min(top + tileSize, height);
        std::size_t above = 0;
        nextOpen.clear();
        for (int column = 0;;) {
            column = findColumn(word, column, columns, true);
            if (column == columns) break;
            const int end = findColumn(word, column, columns, false);
            const int left = column * tileSize, right = std::min(end * tileSize, width);
            while (above < open.size() && found[open[above]].x < left)
                ++above;
            if (above < open.size() && found[open[above]].x == left &&
                found[open[above]].width == right - left) {
                found[open[above]].height = bottom - found[open[above]].y;
                nextOpen.push_back(open[above]);
            } else {
                nextOpen.push_back(found.size());
                found.push_back({left, top, right - left, bottom - top});
            }
            column = end;
        }
        open.swap(nextOpen);
    }
    return found;
}

}  // namespace orvel

#include "Platform/Media/ProResEntropy.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace panoveer {

namespace {

// A combination of Golomb-Rice codes for small values and exponential Golomb codes for larger ones.
struct Codebook {
    int riceOrder, exponentialOrder, lastRiceQuotient;
};

struct Codeword {
    std::uint32_t bits = 0;
    int length = 0;
};

constexpr Codeword codewordOf(const Codebook& book, std::uint32_t value) {
    const auto quotientCount = std::uint32_t(book.lastRiceQuotient + 1);
    const std::uint32_t firstExponential = quotientCount << book.riceOrder;
    if (value < firstExponential) {
        const auto rest = value & ((1U << book.riceOrder) - 1);
        return {1U << book.riceOrder | rest, int(value >> book.riceOrder) + 1 + book.riceOrder};
    }
    const std::uint32_t shifted = value - firstExponential + (1U << book.exponentialOrder);
    const int exponent = std::bit_width(shifted) - 1;
    return {shifted, exponent - book.exponentialOrder + int(quotientCount) + exponent + 1};
}

// Which codebook follows upon the value before: RDD 36, tables 8 to 11, in the shape (rice, exponential, last
// quotient).
constexpr Codebook firstDCBook{5, 6, 0};
constexpr std::array<Codebook, 7> dcBooks{
    {{0, 1, 0}, {1, 2, 0}, {1, 2, 0}, {2, 3, 1}, {2, 3, 1}, {3, 4, 0}, {3, 4, 0}}};
constexpr std::array<Codebook, 16> runBooks{{{0, 1, 2},
                                             {0, 1, 2},
                                             {0, 1, 1},
                                             {0, 1, 1},
                                             {0, 1, 0},
                                             {1, 2, 1},
                                             {1, 2, 1},
                                             {1, 2, 1},
                                             {1, 2, 1},
                                             {1, 2, 0},
                                             {1, 2, 0},
                                             {1, 2, 0},
                                             {1, 2, 0},
                                             {1, 2, 0},
                                             {1, 2, 0},
                                             {2, 3, 0}}};
constexpr std::array<Codebook, 10> levelBooks{
    {{0, 1, 0}, {0, 2, 2}, {0, 1, 1}, {0, 1, 2}, {0, 1, 0}, {1, 2, 0}, {1, 2, 0}, {1, 2, 0}, {1, 2, 0}, {2, 3, 0}}};

// The codewords of values that are common, for every codebook of a family.
template<std::size_t count>
class CodewordTable {
public:
    explicit constexpr CodewordTable(const std::array<Codebook, count>& books) : books_(books) {
        for (std::size_t book = 0; book < count; ++book)
            for (std::uint32_t value = 0; value < common; ++value)
                words_[book][value] = codewordOf(books[book], value);
    }

    Codeword operator()(std::size_t book, std::uint32_t value) const {
        return value < common ? words_[book][value] : codewordOf(books_[book], value);
    }

private:
    static constexpr std::uint32_t common = 32;
    std::array<Codebook, count> books_;
    std::array<std::array<Codeword, common>, count> words_{};
};

constexpr CodewordTable runWords(runBooks);
constexpr CodewordTable levelWords(levelBooks);

template<std::size_t count>
constexpr int longestWord(const std::array<Codebook, count>& books, std::uint32_t value) {
    int longest = 0;
    for (const auto& book : books)
        longest = std::max(longest, codewordOf(book, value).length);
    return longest;
}

// A run, a level and its sign are put at once.
constexpr std::uint32_t longestRun = 63 * 32; // of a slice with 32 blocks
constexpr std::uint32_t largestLevel = 1 << 14;
static_assert(longestWord(runBooks, longestRun) + longestWord(levelBooks, largestLevel) + 1 <= 56);

void put(BitWriter& writer, Codeword word) { writer.put(word.bits, word.length); }

// 0, -1, 1, -2, 2 …
std::uint32_t interleavedSign(int value) { return std::uint32_t(value) << 1 ^ std::uint32_t(value >> 31); }

// The first coefficient of every block, each as the difference from the one before, whose sign is taken out of it.
void writeDC(std::span<const std::int16_t> levels, BitWriter& writer) {
    int previous = levels.front();
    put(writer, codewordOf(firstDCBook, interleavedSign(previous)));
    std::size_t book = 5;
    bool wasNegative = false;
    for (const int level : levels.subspan(1)) {
        const int difference = level - previous;
        const auto value = interleavedSign(wasNegative ? -difference : difference);
        put(writer, codewordOf(dcBooks[book], value));
        book = std::min<std::size_t>(value, dcBooks.size() - 1);
        wasNegative = difference < 0;
        previous = level;
    }
}

// All others: how many zeros come before each that is none, its size and its sign.
class ACWriter {
public:
    explicit ACWriter(BitWriter& writer) : writer_(writer) {}

    void write(std::uint32_t run, int level) {
        const auto size = std::uint32_t(std::abs(level));
        const auto zeros = runWords(runBook_, run), word = levelWords(levelBook_, size - 1);
        const auto bits = (std::uint64_t(zeros.bits) << word.length | word.bits) << 1 | std::uint64_t(level < 0);
        writer_.put(bits, zeros.length + word.length + 1);
        runBook_ = std::min<std::size_t>(run, runBooks.size() - 1);
        levelBook_ = std::min<std::size_t>(size, levelBooks.size() - 1);
    }

private:
    BitWriter& writer_;
    std::size_t runBook_ = 4;
    std::size_t levelBook_ = 2;
};

// Four levels at once: most are zero.
constexpr std::size_t groupSize = 4;

// The highest bit of each of the four that is not zero.
std::uint64_t nonZero(std::uint64_t levels) {
    constexpr std::uint64_t low = 0x7fff7fff7fff7fff;
    return (((levels & low) + low) | levels) & ~low;
}

void writeAC(std::span<const std::int16_t> levels, BitWriter& writer) {
    ACWriter words(writer);
    std::size_t next = 0; // after the last one written
    const auto write = [&](std::size_t place) {
        words.write(std::uint32_t(place - next), levels[place]);
        next = place + 1;
    };
    std::size_t start = 0;
    for (; start + groupSize <= levels.size(); start += groupSize) {
        std::uint64_t group = 0;
        std::memcpy(&group, &levels[start], sizeof group);
        for (auto marks = nonZero(group); marks != 0; marks &= marks - 1)
            write(start + std::size_t(std::countr_zero(marks)) / 16);
    }
    for (; start < levels.size(); ++start)
        if (levels[start] != 0)
            write(start);
}

void writeAlphaDifference(int sample, int previous, int depth, BitWriter& writer) {
    const int shortBits = depth == 8 ? 4 : 7;
    const int largestShort = 1 << (shortBits - 1);
    const int range = 1 << depth;
    const int wrapped = (sample - previous) & (range - 1);
    const int difference = wrapped >= range - largestShort ? wrapped - range : wrapped;
    if (difference == 0 || std::abs(difference) > largestShort)
        writer.put(1U << depth | std::uint32_t(wrapped), depth + 1);
    else
        writer.put(std::uint32_t(std::abs(difference) - 1) << 1 | std::uint32_t(difference < 0), shortBits + 1);
}

// How many samples repeat the one before them.
void writeAlphaRun(std::uint32_t run, BitWriter& writer) {
    if (run == 0)
        writer.put(1, 1);
    else
        writer.put(run, run < 16 ? 5 : 16);
}

} // namespace

void writeLevels(std::span<const std::int16_t> levels, BitWriter& writer) {
    static_assert(std::endian::native == std::endian::little, "the first of a group is in its lowest bits");
    const auto blockCount = levels.size() / coefficientsPerBlock;
    writeDC(levels.first(blockCount), writer);
    writeAC(levels.subspan(blockCount), writer);
}

void writeAlpha(std::span<const std::uint16_t> samples, int depth, BitWriter& writer) {
    int previous = (1 << depth) - 1;
    for (std::size_t place = 0; place < samples.size();) {
        const auto sample = samples[place];
        writeAlphaDifference(sample, previous, depth, writer);
        const auto end = std::find_if(samples.begin() + std::ptrdiff_t(place) + 1, samples.end(),
                                      [&](std::uint16_t other) { return other != sample; });
        const auto next = std::size_t(end - samples.begin());
        writeAlphaRun(std::uint32_t(next - place - 1), writer);
        previous = sample;
        place = next;
    }
}

} // namespace panoveer

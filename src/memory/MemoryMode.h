#pragma once

#include "PartModeUtil.h"

#include <array>
#include <cstddef>
#include <optional>

// The memory mode words and their values in the partition mirror mode record.
namespace MemoryMode {

inline constexpr int kMirrorKeep = 0;
inline constexpr int kCapacityKeep = 1;

inline constexpr int kPerformance = 0;
inline constexpr int kNormal = 1;
inline constexpr int kPartialMirror = 2;
inline constexpr int kFullMirror = 3;
// Spare mode has one value per sparing variant, so the memory operation mode
// byte also carries the sparing mode.
inline constexpr int kSpareOneRank = 0x04;
inline constexpr int kSpareTwoRank = 0x14;
inline constexpr int kSpareAuto = 0x24;

struct Word {
    int value;
    const char* word;
};

inline constexpr std::array kMirrorRasModeWords{Word{kMirrorKeep, "mirror_keep"}, Word{kCapacityKeep, "capacity_keep"}};
inline constexpr std::array kOperationModeWords{
    Word{kPerformance, "performance"}, Word{kNormal, "normal"},      Word{kPartialMirror, "partial_mirror"},
    Word{kFullMirror, "full_mirror"},  Word{kSpareOneRank, "spare"},
};
inline constexpr std::array kSparingModeWords{Word{kSpareOneRank, "1"}, Word{kSpareTwoRank, "2"},
                                              Word{kSpareAuto, "auto"}};

// The value of a word (exact, case-sensitive); none for a null or unknown word.
template <std::size_t N>
std::optional<int> valueOf(const std::array<Word, N>& words, const char* word)
{
    for (const auto& entry : words) {
        if (PartModeUtil::checkKeyword(word, entry.word)) {
            return entry.value;
        }
    }
    return std::nullopt;
}

// The word of a value, or null for a value that is none of the words.
template <std::size_t N>
const char* wordOf(const std::array<Word, N>& words, int value)
{
    for (const auto& entry : words) {
        if (entry.value == value) {
            return entry.word;
        }
    }
    return nullptr;
}

inline bool isSpare(int operationMode)
{
    return operationMode == kSpareOneRank || operationMode == kSpareTwoRank || operationMode == kSpareAuto;
}

inline const char* mirrorRasModeWord(int value) { return wordOf(kMirrorRasModeWords, value); }

inline const char* operationModeWord(int value)
{
    return isSpare(value) ? "spare" : wordOf(kOperationModeWords, value);
}

inline const char* sparingModeWord(int operationMode)
{
    if (operationMode >= kPerformance && operationMode <= kFullMirror) {
        return "disable";
    }
    return wordOf(kSparingModeWords, operationMode);
}

} // namespace MemoryMode

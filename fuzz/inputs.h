// Hostile inputs for the exports: real documents mutated, and documents made
// from a small grammar of elements and attributes. Every input is a function of
// the run's seed and its index alone, so one input can be made again.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace fuzz {

// What the inputs are made from: names the documents use, values from the
// world's documents, and the files and folders of the world.
struct SVocabulary {
    std::vector<std::wstring> elements;
    std::vector<std::wstring> attributes;
    std::vector<std::wstring> values;
    std::vector<std::wstring> paths;
    std::wstring root;
};

class CInputMaker {
public:
    CInputMaker(uint64_t seed, int64_t index, const SVocabulary& vocabulary);

    int Below(int count);
    bool Chance(int percent) { return Below(100) < percent; }
    template <typename T>
    const T& Pick(const std::vector<T>& items) { return items[static_cast<size_t>(Below(static_cast<int>(items.size())))]; }

    // A seed as it is, mutated, or a made-up document; rarely a very deep one.
    std::wstring Document(const std::vector<std::wstring>& seeds);
    // One to four edits of `text`: attribute values, elements, single characters.
    std::wstring Mutate(std::wstring text);
    // A value an attribute should never hold: numbers out of range, paths
    // with "..", wildcards, reserved names, very long texts, broken UTF-16.
    std::wstring Nasty();
    // The bytes of a file holding `text`: UTF-8 (lone surrogates encoded as
    // they stand), now and then damaged or in another encoding.
    std::string FileBytes(const std::wstring& text);

private:
    std::wstring Element(int depth);
    std::wstring Deep();
    void EditAttribute(std::wstring& text);
    void EditCharacters(std::wstring& text);

    std::mt19937_64 random_;
    const SVocabulary& vocabulary_;
};

// `text` encoded as UTF-8, a lone surrogate as its three bytes.
std::string loose_utf8(const std::wstring& text);

} // namespace fuzz

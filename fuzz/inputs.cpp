#include "inputs.h"

namespace fuzz {

namespace {

// Characters that matter to XML, to paths, to the message formatter and to
// the conversions; some of them are not valid UTF-16 on their own.
const std::wstring kSpecials = L"<>\"'&/=;?*%\\:. \n\t\x01\x7F\xE9\x20AC\xD800\xDFFF\xFFFE\xFFFF";

std::wstring repeat(const std::wstring& text, int times)
{
    std::wstring result;
    result.reserve(text.size() * static_cast<size_t>(times));
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}

// splitmix64: neighbouring indexes give unrelated generators.
uint64_t mix(uint64_t value)
{
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

} // namespace

std::string loose_utf8(const std::wstring& text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t code = static_cast<uint16_t>(text[i]);
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
            code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<uint16_t>(text[++i]) - 0xDC00);
        if (code < 0x80) {
            bytes += static_cast<char>(code);
        } else if (code < 0x800) {
            bytes += static_cast<char>(0xC0 | (code >> 6));
            bytes += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            bytes += static_cast<char>(0xE0 | (code >> 12));
            bytes += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            bytes += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            bytes += static_cast<char>(0xF0 | (code >> 18));
            bytes += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            bytes += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            bytes += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return bytes;
}

CInputMaker::CInputMaker(uint64_t seed, int64_t index, const SVocabulary& vocabulary)
    : random_(mix(seed ^ mix(static_cast<uint64_t>(index)))), vocabulary_(vocabulary)
{
}

int CInputMaker::Below(int count)
{
    return count <= 1 ? 0 : static_cast<int>(random_() % static_cast<uint64_t>(count));
}

std::wstring CInputMaker::Document(const std::vector<std::wstring>& seeds)
{
    const int kind = Below(100);
    if (!seeds.empty() && kind < 5)
        return Pick(seeds);
    if (!seeds.empty() && kind < 70)
        return Mutate(Pick(seeds));
    if (kind < 72)
        return Deep();
    std::wstring text = Chance(20) ? L"<?xml version=\"1.0\" encoding=\"" + Pick<std::wstring>({L"UTF-8", L"UTF-16", L"ISO-8859-1", L"x"}) + L"\"?>" : L"";
    if (Chance(10))
        text += L"<!DOCTYPE a [<!ENTITY e \"" + Nasty() + L"\">]><!-- " + Nasty() + L" -->";
    text += Element(0);
    return Chance(20) ? Mutate(text) : text;
}

std::wstring CInputMaker::Mutate(std::wstring text)
{
    for (int edits = 1 + Below(4); edits > 0; --edits) {
        if (Chance(55))
            EditAttribute(text);
        else
            EditCharacters(text);
    }
    return text;
}

// A value replaced, an attribute dropped or renamed, an element doubled or renamed.
void CInputMaker::EditAttribute(std::wstring& text)
{
    std::vector<size_t> quotes;
    for (size_t at = text.find(L"=\""); at != std::wstring::npos; at = text.find(L"=\"", at + 2))
        quotes.push_back(at + 2);
    if (quotes.empty())
        return EditCharacters(text);
    const size_t begin = Pick(quotes);
    const size_t end = std::min(text.find(L'"', begin), text.size());
    size_t name = text.find_last_of(L" \t\n<", begin - 2);
    name = name == std::wstring::npos ? 0 : name + 1;
    switch (Below(6)) {
    case 0: text.erase(name, end + 1 - name); break;
    case 1: text.replace(name, begin - 2 - name, Pick(vocabulary_.attributes)); break;
    case 2: text.replace(begin, end - begin, Pick(vocabulary_.values)); break;
    case 3: {
        const size_t open = text.rfind(L'<', begin);
        const size_t close = text.find(L'>', end);
        if (open != std::wstring::npos && close != std::wstring::npos)
            text.insert(open, text.substr(open, close + 1 - open));
        break;
    }
    case 4: {
        const size_t open = text.rfind(L'<', begin);
        if (open != std::wstring::npos)
            text.replace(open + 1, text.find_first_of(L" />", open) - open - 1, Pick(vocabulary_.elements));
        break;
    }
    default: text.replace(begin, end - begin, Nasty()); break;
    }
}

void CInputMaker::EditCharacters(std::wstring& text)
{
    const size_t at = text.empty() ? 0 : static_cast<size_t>(Below(static_cast<int>(text.size()) + 1));
    const size_t span = std::min(text.size() - at, static_cast<size_t>(1 + Below(40)));
    switch (Below(6)) {
    case 0: text.insert(at, 1, kSpecials[static_cast<size_t>(Below(static_cast<int>(kSpecials.size())))]); break;
    case 1: text.erase(at, span); break;
    case 2: text.insert(at, text.substr(at, span)); break;
    case 3: text.resize(at); break;
    case 4: text.insert(at, Element(3)); break;
    default:
        if (!text.empty())
            text[std::min(at, text.size() - 1)] = static_cast<wchar_t>(Below(0x10000));
        break;
    }
}

std::wstring CInputMaker::Nasty()
{
    const std::wstring& root = vocabulary_.root;
    const std::wstring& path = Pick(vocabulary_.paths);
    switch (Below(40)) {
    case 0: return L"";
    case 1: return L" ";
    case 2: return Pick<std::wstring>({L"-1", L"0", L"1", L"4", L"5", L"6", L"7", L"-0"});
    case 3: return Pick<std::wstring>({L"2147483647", L"2147483648", L"-2147483649", L"4294967296", L"18446744073709551616"});
    case 4: return Pick<std::wstring>({L"99999999999999999999999999999", L"1e309", L"0x1F", L" 12 ", L"+8", L"1.5", L"NaN"});
    case 5: return Pick<std::wstring>({L"true", L"false", L"TRUE", L"yes", L"no", L"0", L"tru"});
    case 6: return Pick<std::wstring>({L"%1", L"%1%2%3%%%", L"%0", L"%99", L"%s%n%x"});
    case 7: return Pick<std::wstring>({L"&amp;&lt;&gt;&quot;", L"&#0;", L"&#xD800;", L"&#1114112;", L"&bogus;", L"&#x"});
    case 8: return Pick<std::wstring>({L"\xD800", L"\xDC00\xD800", L"a\xDBFFz", L"\xFFFE\xFFFF", L"\x01\x02\x1B\x7F"});
    case 9: return std::wstring(static_cast<size_t>(Chance(10) ? 100000 + Below(900000) : 300 + Below(5000)), L'A' + static_cast<wchar_t>(Below(26)));
    case 10: return path;
    case 11: return root + L"\\logs\\..\\logs\\" + path.substr(path.find_last_of(L'\\') + 1);
    case 12: return root + Pick<std::wstring>({L"\\logs\\*", L"\\logs\\*.xml", L"\\logs\\?", L"\\logs\\{*}", L"\\*\\arch\\*"});
    case 13: return Pick<std::wstring>({L"CON", L"NUL", L"COM1", L"AUX", L"LPT1", L"PRN"});
    case 14: return root + Pick<std::wstring>({L"\\logs\\CON", L"\\logs\\NUL.xml", L"\\logs\\COM1.ARC", L"\\logs\\AUX.xml"});
    case 15: return Pick<std::wstring>({L"..", L".", L"..\\..\\..", L"..\\logs", L"\\", L"/", L"C:", L"C:\\", L"\\\\"});
    case 16: return L"\\\\?\\" + path;
    case 17: return Pick<std::wstring>({L"\\\\.\\", L"\\\\.\\pipe\\x", L"\\\\server\\share\\x", L"\\\\?\\UNC\\server\\share"});
    case 18: {
        std::wstring upper = path;
        for (wchar_t& c : upper)
            c = c == L'\\' ? L'/' : static_cast<wchar_t>(towupper(c));
        return upper;
    }
    case 19: return path + Pick<std::wstring>({L":ads", L" ", L".", L"\\", L"\\..", L"::$DATA", L"\\.."});
    case 20: return root + L"\\logs";
    case 21: return root + L"\\" + repeat(L"a", 250 + Below(300)) + L"\\" + repeat(L"b\\", Below(200));
    case 22: return Pick(vocabulary_.values);
    case 23: return Pick(vocabulary_.values) + Nasty();
    default: return Below(2) == 0 ? Pick(vocabulary_.values) : path;
    }
}

std::wstring CInputMaker::Element(int depth)
{
    const std::wstring name = Chance(90) ? Pick(vocabulary_.elements) : Nasty();
    std::wstring text = L"<" + name;
    for (int count = Below(6); count > 0; --count)
        text += L" " + (Chance(90) ? Pick(vocabulary_.attributes) : std::wstring(L"x") + std::to_wstring(Below(9))) +
                L"=\"" + (Chance(50) ? Pick(vocabulary_.values) : Nasty()) + L"\"";
    const int children = depth < 5 ? Below(4) : 0;
    if (children == 0 && Chance(70))
        return text + L"/>";
    text += L">";
    for (int i = 0; i < children; ++i)
        text += Element(depth + 1);
    if (Chance(10))
        text += Chance(50) ? L"<![CDATA[" + Nasty() + L"]]>" : Nasty();
    return text + L"</" + name + L">";
}

// Deep nesting, closed or not, for the parser's recursion.
std::wstring CInputMaker::Deep()
{
    const int depth = Chance(50) ? 100 + Below(2000) : 10000 + Below(200000);
    const std::wstring& name = Pick(vocabulary_.elements);
    std::wstring text = repeat(L"<" + name + L">", depth);
    return Chance(50) ? text + repeat(L"</" + name + L">", depth) : text;
}

std::string CInputMaker::FileBytes(const std::wstring& text)
{
    std::string bytes = loose_utf8(text);
    switch (Below(12)) {
    case 0: return "\xEF\xBB\xBF" + bytes;
    case 1: {
        std::string utf16 = "\xFF\xFE";
        for (wchar_t c : text) {
            utf16 += static_cast<char>(c & 0xFF);
            utf16 += static_cast<char>((c >> 8) & 0xFF);
        }
        return utf16;
    }
    case 2:
    case 3:
        for (int edits = 1 + Below(6); edits > 0; --edits)
            bytes.insert(static_cast<size_t>(Below(static_cast<int>(bytes.size()) + 1)),
                         Pick<std::string>({std::string("\x80"), std::string("\xFF"), std::string("\xC0\x80"),
                                            std::string(1, '\0'), std::string("\xED\xA0\x80"), std::string("\xF4\x90\x80\x80")}));
        return bytes;
    case 4: return std::string();
    default: return bytes;
    }
}

} // namespace fuzz

#include "common/xml/xml.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include <tinyxml.h>

#include "common/exc/exc.h"
#include "common/strings/strings.h"

namespace util {

namespace {

// A source text quoted in a message: a whole document would flood the log.
std::string cut_source(const std::string& text)
{
    const size_t limit = 128;
    if (text.size() <= limit)
        return text;
    return text.substr(0, limit) + "..., length: " + std::to_string(text.size());
}

// The parser descends once per level of elements; a document nested deeper
// than this is refused before it is parsed, so no text can exhaust the stack.
constexpr size_t max_element_depth = 256;

// Where the markup that starts at `open` (a "<") ends: just past its closing
// text, or the end of the content. Quoted attribute values may hold ">".
size_t markup_end(const std::string& text, size_t open, bool& opens_element, bool& closes_element)
{
    opens_element = false;
    closes_element = false;
    const auto past = [&text](size_t from, const char* closing) {
        const size_t found = text.find(closing, from);
        return found == std::string::npos ? text.size() : found + std::strlen(closing);
    };
    if (text.compare(open, 4, "<!--") == 0)
        return past(open + 4, "-->");
    if (text.compare(open, 9, "<![CDATA[") == 0)
        return past(open + 9, "]]>");
    if (text.compare(open, 2, "<?") == 0)
        return past(open + 2, "?>");
    char quote = 0;
    size_t at = open + 1;
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (quote != 0) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            break;
        }
    }
    const char first = open + 1 < text.size() ? text[open + 1] : 0;
    closes_element = first == '/';
    opens_element = first != '/' && first != '!' && !(at < text.size() && text[at - 1] == '/');
    return at < text.size() ? at + 1 : at;
}

void check_depth(const std::string& text)
{
    size_t depth = 0;
    size_t at = text.find('<');
    while (at != std::string::npos) {
        bool opens = false;
        bool closes = false;
        const size_t end = markup_end(text, at, opens, closes);
        if (opens && ++depth > max_element_depth)
            throw exc::exc_base_t(format_msg("XML error: [%1].",
                                             "Elements are nested deeper than " +
                                                 std::to_string(max_element_depth) + " levels"));
        if (closes && depth > 0)
            --depth;
        at = text.find('<', end);
    }
}

} // namespace

xml_node_t::xml_node_t(TiXmlElement* element, std::shared_ptr<TiXmlDocument> document)
    : element_(element), document_(element != nullptr ? std::move(document) : nullptr)
{
}

std::string xml_node_t::name() const
{
    return element_ != nullptr ? element_->ValueStr() : std::string();
}

void xml_node_t::set_attribute(const std::string& name, const std::string& value)
{
    try {
        if (element_ == nullptr)
            throw exc::runtime_exc_t("XML node is not specified.");
        element_->SetAttribute(name, value);
    } catch (const std::exception& caught) {
        exc::throw_nested(
            format_msg("Failed to set attribute value. Attribute: [%1]. Value: [%2].", name, value),
            caught);
    }
}

void xml_node_t::set_attribute(const std::string& name, uint32_t value)
{
    set_attribute(name, std::to_string(static_cast<int32_t>(value)));
}

void xml_node_t::set_attribute(const std::string& name, bool value)
{
    set_attribute(name, std::string(value ? "true" : "false"));
}

void xml_node_t::set_attribute(const std::string& name, const char* value)
{
    set_attribute(name, std::string(value));
}

std::string xml_node_t::get_string(const std::string& name) const
{
    std::string value;
    if (!find_string(name, value))
        throw exc::runtime_exc_t("Attribute value is not specified. Attribute: [%1].", name);
    return value;
}

bool xml_node_t::find_string(const std::string& name, std::string& value) const
{
    if (element_ == nullptr)
        return false;
    const char* text = element_->Attribute(name.c_str());
    if (text == nullptr)
        return false;
    value = text;
    return true;
}

bool xml_node_t::get_bool(const std::string& name) const
{
    bool value = false;
    if (!find_bool(name, value))
        throw exc::runtime_exc_t("Value of the XML attribute '%1' is not defined.", name);
    return value;
}

bool xml_node_t::find_bool(const std::string& name, bool& value) const
{
    std::string text;
    if (!find_string(name, text))
        return false;
    if (text == "true")
        value = true;
    else if (text == "false")
        value = false;
    else
        value = text != "0";
    return true;
}

int32_t xml_node_t::get_int(const std::string& name) const
{
    // The two texts look swapped, and they stay so: readers of the log know them.
    std::string text;
    if (!find_string(name, text))
        throw exc::runtime_exc_t("Unexpected type of the attribute. Attribute: [%1].", name);
    const char* begin = text.c_str();
    char* end = nullptr;
    const long value = std::strtol(begin, &end, 10);
    if (end == begin)
        throw exc::runtime_exc_t("Attribute value is not specified. Attribute: [%1].", name);
    return static_cast<int32_t>(value);
}

xml_node_t xml_node_t::child(const std::string& name) const
{
    xml_node_t found = find_child(name);
    if (found.is_empty())
        throw exc::runtime_exc_t("There is no node with the specified name: [%1].", name);
    return found;
}

xml_node_t xml_node_t::find_child(const std::string& name) const
{
    if (element_ == nullptr)
        return xml_node_t();
    return xml_node_t(element_->FirstChildElement(name.c_str()), document_);
}

xml_node_t xml_node_t::first_child() const
{
    if (element_ == nullptr)
        return xml_node_t();
    return xml_node_t(element_->FirstChildElement(), document_);
}

xml_node_t xml_node_t::next_sibling() const
{
    if (element_ == nullptr)
        return xml_node_t();
    return xml_node_t(element_->NextSiblingElement(), document_);
}

xml_node_t xml_node_t::next_sibling(const std::string& name) const
{
    if (element_ == nullptr)
        return xml_node_t();
    return xml_node_t(element_->NextSiblingElement(name.c_str()), document_);
}

xml_node_t xml_node_t::add_child(const std::string& name)
{
    if (element_ == nullptr)
        throw exc::runtime_exc_t("Failed to create XML element [%1]. Parent node is not specified.",
                                 name);
    auto* created = new TiXmlElement(name);
    element_->LinkEndChild(created);
    return xml_node_t(created, document_);
}

xml_node_t xml_node_t::add_copy(const xml_node_t& source)
{
    if (source.is_empty())
        throw exc::runtime_exc_t("Failed to copy XML element. Source node is not specified.");
    if (element_ == nullptr)
        throw exc::runtime_exc_t("Failed to copy XML element [%1]. Parent node is not specified.",
                                 source.name());
    TiXmlNode* copy = source.element_->Clone();
    element_->LinkEndChild(copy);
    return xml_node_t(copy->ToElement(), document_);
}

void xml_node_t::add_text(const std::string& text)
{
    if (element_ == nullptr)
        throw exc::runtime_exc_t("Failed to add XML text [%1]. Parent node is not specified.", text);
    element_->LinkEndChild(new TiXmlText(text));
}

std::string xml_node_t::text() const
{
    if (element_ == nullptr)
        return std::string();
    for (const TiXmlNode* node = element_->FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        if (const TiXmlText* text = node->ToText())
            return text->ValueStr();
    }
    return std::string();
}

xml_document_t::xml_document_t() : document_(std::make_shared<TiXmlDocument>()) {}

xml_document_t::xml_document_t(const std::string& root_name) : xml_document_t()
{
    document_->LinkEndChild(new TiXmlElement(root_name));
}

void xml_document_t::parse(const std::string& content)
{
    try {
        check_depth(content);
        auto parsed = std::make_shared<TiXmlDocument>();
        parsed->Parse(content.c_str());
        if (parsed->Error()) {
            if (parsed->ErrorId() != 0)
                throw exc::exc_base_t(format_msg("XML error: [%1]. Error code: [%2].",
                                                 parsed->ErrorDesc(),
                                                 int_to_str(static_cast<int32_t>(parsed->ErrorId()))));
            throw exc::exc_base_t(format_msg("XML error: [%1].", parsed->ErrorDesc()));
        }
        document_ = std::move(parsed);
    } catch (const std::exception& caught) {
        exc::throw_nested_trace(
            format_msg("Failed to parse XML content. Source content: [%1].", cut_source(content)),
            caught);
    }
}

std::string xml_document_t::to_string() const
{
    try {
        TiXmlPrinter printer;
        printer.SetIndent("    ");
        printer.SetLineBreak("\n");
        document_->Accept(&printer);
        return printer.Str();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to serialize XML document.", caught);
    }
}

xml_node_t xml_document_t::root() const
{
    return xml_node_t(document_->RootElement(), document_);
}

} // namespace util

#pragma once

#include <cstdint>
#include <memory>
#include <string>

class TiXmlDocument;
class TiXmlElement;

namespace util {

// One element of a document. A value type: it holds the document it belongs to,
// so a node stays valid after the xml_document_t it came from is gone. A node
// without an element behind it ("empty") answers every lookup with "absent".
// All text is UTF-8 as the parser holds it; attribute names are compared
// case-sensitively.
class xml_node_t {
public:
    xml_node_t() = default;
    xml_node_t(TiXmlElement* element, std::shared_ptr<TiXmlDocument> document);

    bool is_empty() const { return element_ == nullptr; }
    // The element's name; empty for an empty node.
    std::string name() const;

    void set_attribute(const std::string& name, const std::string& value);
    // Written with "%d", so values above INT32_MAX come out negative.
    void set_attribute(const std::string& name, uint32_t value);
    void set_attribute(const std::string& name, bool value);
    // Keeps a string literal from binding to the bool overload.
    void set_attribute(const std::string& name, const char* value);

    std::string get_string(const std::string& name) const;
    bool find_string(const std::string& name, std::string& value) const;
    bool get_bool(const std::string& name) const;
    bool find_bool(const std::string& name, bool& value) const;
    int32_t get_int(const std::string& name) const;

    xml_node_t child(const std::string& name) const;
    xml_node_t find_child(const std::string& name) const;
    xml_node_t first_child() const;
    xml_node_t next_sibling() const;
    xml_node_t next_sibling(const std::string& name) const;

    xml_node_t add_child(const std::string& name);
    // Appends a deep copy of `source`, which may belong to another document.
    xml_node_t add_copy(const xml_node_t& source);
    void add_text(const std::string& text);
    // The first text child; empty when there is none.
    std::string text() const;

private:
    TiXmlElement* element_ = nullptr;
    std::shared_ptr<TiXmlDocument> document_;
};

// A document with shared ownership: nodes taken from it keep it alive.
class xml_document_t {
public:
    xml_document_t();
    // A new document whose root is an element of that name.
    explicit xml_document_t(const std::string& root_name);

    // Replaces the content with the parsed text; the message of a failure quotes
    // the source, cut to its first 128 bytes.
    void parse(const std::string& content);
    // Indented with four blanks, lines ended by "\n".
    std::string to_string() const;
    // The root element; an empty node when the document has none.
    xml_node_t root() const;

private:
    std::shared_ptr<TiXmlDocument> document_;
};

} // namespace util

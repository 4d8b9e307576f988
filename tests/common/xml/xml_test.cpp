#include "common/xml/xml.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/exc/exc.h"
#include "support/failure_lines.h"

using util::xml_document_t;
using util::xml_node_t;

namespace {

using test::failure_text;

// The root of a document that is gone: the node keeps it alive.
xml_node_t parsed_root(const std::string& content)
{
    xml_document_t document;
    document.parse(content);
    return document.root();
}

} // namespace

TEST(XmlPrinting, DocumentIsIndentedWithFourBlanksKeepsAttributeOrderAndPrintsUnsignedAsSigned)
{
    xml_document_t document("inventory");
    document.root().set_attribute("z", "1");
    document.root().set_attribute("m", 4294967295u);
    xml_node_t database = document.root().add_child("database");
    database.set_attribute("name", std::string("A&B <c>"));
    database.set_attribute("num", 42u);
    database.set_attribute("open", true);
    database.add_child("empty");
    database.add_child("text").add_text("a&b");

    EXPECT_EQ(document.to_string(),
              "<inventory z=\"1\" m=\"-1\">\n"
              "    <database name=\"A&amp;B &lt;c&gt;\" num=\"42\" open=\"true\">\n"
              "        <empty />\n"
              "        <text>a&amp;b</text>\n"
              "    </database>\n"
              "</inventory>\n");
}

TEST(XmlPrinting, PrintedDocumentParsesBackToTheSameText)
{
    xml_document_t original("archived_logs");
    xml_node_t log = original.root().add_child("archived_log");
    log.set_attribute("path", std::string("C:\\arch\\\xC3\xA9t\xC3\xA9 \"1\".arc"));
    log.set_attribute("ctl", std::string("a\tb"));
    const std::string text = original.to_string();

    xml_document_t copy;
    copy.parse(text);
    EXPECT_EQ(copy.to_string(), text);
    EXPECT_EQ(copy.root().child("archived_log").get_string("path"),
              "C:\\arch\\\xC3\xA9t\xC3\xA9 \"1\".arc");
    EXPECT_EQ(copy.root().child("archived_log").get_string("ctl"), "a\tb");
}

// The whole text of a short source's failure reaches the agent, checked end to end.
TEST(XmlParsing, FailureQuotesTheSourceCutTo128BytesAndKeepsThePreviousContent)
{
    xml_document_t document;
    document.parse("<kept/>");
    const std::string source = "<a><b></a>" + std::string(119, ' ');
    const std::string text = failure_text([&] { document.parse(source); });
    EXPECT_EQ(text.substr(text.find("\n")),
              "\n--tr:Failed to parse XML content. Source content: [" + source.substr(0, 128) +
                  "..., length: 129].");
    EXPECT_EQ(document.root().name(), "kept");
}

// `depth` levels of <e>, the innermost holding one level more in <c></c>;
// quoted ">", comments, sections and closed elements on the way add none.
std::string nested(size_t depth)
{
    const std::string level = "<e a='>'><!--<x>--><![CDATA[<y>]]><?p <z>?><s/><c></c>";
    std::string text;
    for (size_t i = 0; i < depth; ++i)
        text += level;
    for (size_t i = 0; i < depth; ++i)
        text += "</e>";
    return text;
}

TEST(XmlParsing, DocumentDeeperThan256LevelsIsRefusedBeforeItIsParsed)
{
    xml_document_t document;
    document.parse(nested(255));
    EXPECT_EQ(document.root().name(), "e");
    const std::string deepest = "XML error: [Elements are nested deeper than 256 levels].\n"
                                "--tr:Failed to parse XML content. Source content: [";
    EXPECT_EQ(failure_text([&] { document.parse(nested(256)); }).substr(0, deepest.size()),
              deepest);
    EXPECT_EQ(failure_text([&] { document.parse(nested(8000)); }).substr(0, deepest.size()),
              deepest);
}

TEST(XmlAttributes, EmptyCountsAsPresentBoolIsFalseOnlyForFalseAndZeroAndEachFailureHasItsText)
{
    const xml_node_t root = parsed_root("<r empty='' Name='x' t='true' f='false' zero='0' yes='yes' "
                                        "upper='FALSE' n='42' neg=' -7' word='abc'/>");
    std::string value = "unchanged";
    EXPECT_TRUE(root.find_string("empty", value));
    EXPECT_EQ(value, "");
    EXPECT_FALSE(root.find_string("name", value));
    EXPECT_EQ(failure_text([&] { root.get_string("name"); }),
              "Attribute value is not specified. Attribute: [name].");

    for (const char* name : {"t", "yes", "upper", "empty"})
        EXPECT_TRUE(root.get_bool(name)) << name;
    EXPECT_FALSE(root.get_bool("f"));
    EXPECT_FALSE(root.get_bool("zero"));
    bool flag = false;
    EXPECT_FALSE(root.find_bool("absent", flag));
    EXPECT_EQ(failure_text([&] { root.get_bool("absent"); }),
              "Value of the XML attribute 'absent' is not defined.");

    EXPECT_EQ(root.get_int("n"), 42);
    EXPECT_EQ(root.get_int("neg"), -7);
    EXPECT_EQ(failure_text([&] { root.get_int("word"); }),
              "Attribute value is not specified. Attribute: [word].");
    EXPECT_EQ(failure_text([&] { root.get_int("absent"); }),
              "Unexpected type of the attribute. Attribute: [absent].");
}

TEST(XmlNodes, ChildLookupByNameAndWalkInDocumentOrder)
{
    const xml_node_t root = parsed_root("<r><a i='1'/>text<b i='2'/><a i='3'/></r>");
    std::vector<std::string> walked;
    for (xml_node_t node = root.first_child(); !node.is_empty(); node = node.next_sibling())
        walked.push_back(node.name() + node.get_string("i"));
    EXPECT_EQ(walked, (std::vector<std::string>{"a1", "b2", "a3"}));
    EXPECT_EQ(root.child("a").next_sibling("a").get_string("i"), "3");
    EXPECT_TRUE(root.child("b").next_sibling("b").is_empty());
    EXPECT_TRUE(root.find_child("c").is_empty());
    EXPECT_EQ(failure_text([&] { root.child("c"); }),
              "There is no node with the specified name: [c].");
    EXPECT_EQ(root.text(), "text");
    EXPECT_EQ(parsed_root("<r><c/>first<d/>second</r>").text(), "first");
}

TEST(XmlNodes, CopyFromAnotherDocumentIsDeep)
{
    xml_document_t target("archived_logs");
    {
        const xml_node_t source = parsed_root("<archived_log path='p'><x/></archived_log>");
        target.root().add_copy(source);
    }
    EXPECT_EQ(target.to_string(),
              "<archived_logs>\n"
              "    <archived_log path=\"p\">\n"
              "        <x />\n"
              "    </archived_log>\n"
              "</archived_logs>\n");
}

TEST(XmlNodes, EmptyNodeAnswersLookupsAsAbsentAndRefusesChanges)
{
    xml_node_t empty = xml_document_t().root();
    ASSERT_TRUE(empty.is_empty());
    std::string value;
    EXPECT_FALSE(empty.find_string("a", value));
    EXPECT_TRUE(empty.first_child().is_empty());
    EXPECT_EQ(empty.text(), "");
    EXPECT_EQ(failure_text([&] { empty.add_child("db"); }),
              "Failed to create XML element [db]. Parent node is not specified.");
    EXPECT_EQ(failure_text([&] { empty.set_attribute("sid", "ORCL"); }),
              "XML node is not specified.\n"
              "Failed to set attribute value. Attribute: [sid]. Value: [ORCL].");
}

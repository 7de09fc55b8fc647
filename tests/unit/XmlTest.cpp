// What the parser makes of a text: its result, its log line, the tree that it leaves, and where it stands.
#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TemporaryFolder.h"
#include "utils/Log.h"
#include "utils/xml/Document.h"

namespace libzel::xml {
namespace {

using namespace std::string_view_literals;

// name{attribute=value}'text'(child,child); a nameless element is "%".
std::string Describe(const Element& element) {
  std::string text = element.name().empty() ? "%" : element.name();
  std::string attributes;
  for (const auto& [key, value] : element.attributes()) {
    if (!attributes.empty()) attributes += ',';
    attributes.append(key).append(1, '=').append(value);
  }
  if (!attributes.empty()) text.append(1, '{').append(attributes).append(1, '}');
  if (!element.text().empty()) text.append(1, '\'').append(element.text()).append(1, '\'');
  std::string children;
  for (const Element& child : element.children()) {
    if (!children.empty()) children += ',';
    children += Describe(child);
  }
  if (!children.empty()) text.append(1, '(').append(children).append(1, ')');
  return text;
}

struct Endless {};

// Leaves a parse that would never end, but not at the first sight of it.
class ImpatientDocument : public Document {
 protected:
  void OnMismatchedNesting() override {
    if (rounds_++ == 0) where_ = position();
    if (position() != where_) throw std::runtime_error("the endless loop moved");
    if (rounds_ == 100) throw Endless();
  }

 private:
  int rounds_ = 0;
  size_t where_ = 0;
};

enum class Result { kTrue, kFalse, kThrows, kEndless };

std::ostream& operator<<(std::ostream& out, Result result) {
  constexpr const char* kNames[] = {"true", "false", "throws", "endless"};
  return out << kNames[static_cast<int>(result)];
}

constexpr Result kTrue = Result::kTrue;
constexpr Result kFalse = Result::kFalse;
constexpr Result kThrows = Result::kThrows;
constexpr Result kEndless = Result::kEndless;

struct Row {
  std::string_view text;
  Result result;
  std::string_view tree;
  size_t position;
  std::string_view log = {};
};

std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.text; }

constexpr const char* kEmpty = "xml document is empty";
constexpr const char* kDeclaration = "xml declaration is error";
constexpr const char* kComment = "xml comment is error";
constexpr const char* kEmptyElement = "xml empty element is error";

constexpr Row kPrologRows[] = {
    {"", kFalse, "%", 0, kEmpty},
    {"  \n\t\r", kFalse, "%", 5, kEmpty},
    {"\0<a/>"sv, kFalse, "%", 0, kEmpty},
    {"<?xml version=\"1.0\"?><a/>", kTrue, "a", 25},
    {"  <?xml?>  <a/>", kTrue, "a", 15},
    {"<?xml?><a/>", kTrue, "a", 11},
    {"<?xmlish?><a/>", kTrue, "a", 14},
    {"<?xml?>", kTrue, "%", 7},
    {"<?xml", kFalse, "%", 0, kDeclaration},
    {"<?xml version=\"1.0\"><a/>", kFalse, "%", 0, kDeclaration},
    {"<?php?><a/>", kTrue, "%", 0},
    {"<!-- c --><a/>", kTrue, "a", 14},
    {"<?xml?><!-- c --><a/>", kTrue, "a", 21},
    {"<!-- c", kFalse, "%", 0, kComment},
    {"<!-- c --", kFalse, "%", 0, kComment},
    {"<!--><a/>", kTrue, "a", 9},
    {"<!---->", kTrue, "%", 7},
    {"<!-- a --><!-- b --><x/>", kTrue, "%", 10},
    {"<!-- a --><?xml?><x/>", kTrue, "%", 10},
    {"<!DOCTYPE a><a/>", kTrue, "%", 0},
    {"</a>", kTrue, "%", 0},
    {"text", kTrue, "%", 0},
    {" text", kTrue, "%", 1},
    {"<1a/>", kTrue, "%", 0},
    {"< a/>", kTrue, "%", 0},
    {"<", kTrue, "%", 0},
    {"\xEF\xBB\xBF<a/>", kTrue, "%", 0},
    {"<\xC3\xA9/>", kTrue, "%", 0},
    {"\v<a/>", kTrue, "%", 0},
};

constexpr Row kTagRows[] = {
    {"<a/>", kTrue, "a", 4},
    {"<a />", kTrue, "a", 5},
    {"<a/><b/>", kTrue, "a", 4},
    {"<_/>", kTrue, "_", 4},
    {"<A9-b:c_1/>", kTrue, "A9-b:c_1", 11},
    {"<a", kTrue, "a", 2},
    {"<a ", kTrue, "a", 3},
    {"<a \0/>"sv, kTrue, "a", 3},
    {"<a/", kFalse, "a", 2, kEmptyElement},
    {"<a/ >", kFalse, "a", 2, kEmptyElement},
    {"<a x=\"1\"/ >", kFalse, "a{x=1}", 8, kEmptyElement},
    {"<a.b/>", kFalse, "a", 2, "xml element attr is error:"},
    {"<a>", kFalse, "a", 3, kEmpty},
    {"<a>  ", kFalse, "a", 5, kEmpty},
    {"<a></a>", kTrue, "a(%)", 7},
    {"<a> \n</a>", kTrue, "a(%)", 9},
    {"<a></a>x", kTrue, "a(%)", 7},
    {"<a></b>", kFalse, "a(%)", 3, "xml element a end tag not found"},
    {"<a></ a>", kFalse, "a(%)", 3, "xml element a end tag not found"},
    {"<a></a >", kFalse, "a(%)", 3, "xml element a end tag not found"},
    {"<a></A>", kFalse, "a(%)", 3, "xml element a end tag not found"},
    {"<ab></a>", kFalse, "ab(%)", 4, "xml element ab end tag not found"},
    {"<a></b></a>", kEndless, "a(%)", 3},
    {"<a><b></a></b>", kEndless, "a", 6},
    {"<a><b>x</a></b>", kEndless, "a", 7},
    {"<a><b><c></b></c></a>", kEndless, "a", 9},
    {"<a>x</b><!-- </a> -->", kEndless, "a'x'", 4},
};

constexpr Row kTextRows[] = {
    {"<a>x</a>", kTrue, "a'x'", 8},
    {"<a>  abc  </a>", kTrue, "a'abc  '", 14},
    {"<a>\r\n x\r\n</a>", kTrue, "a'x\r\n'", 13},
    {"<a>x y\nz</a>", kTrue, "a'x y\nz'", 12},
    {"<a>&lt;&amp;&#65;</a>", kTrue, "a'&lt;&amp;&#65;'", 21},
    {"<a>x>y</a>", kTrue, "a'x>y'", 10},
    {"<a>=\"x\"</a>", kTrue, "a'=\"x\"'", 11},
    {"<a>/></a>", kTrue, "a'/>'", 9},
    {"<a>\xC3\xA9</a>", kTrue, "a'\xC3\xA9'", 9},
    {"<a>x\0y</a>"sv, kTrue, "a'x\0y'"sv, 10},
    {"<a>x", kTrue, "a'x'", 4},
    {"<a>x</a", kFalse, "a'x'", 4, "xml element a end tag not found"},
    {"<a>x</b>", kFalse, "a'x'", 4, "xml element a end tag not found"},
    {"<a>x<b/></a>", kTrue, "a'x'(b)", 12},
    {"<a>x<b/>>y</a>", kTrue, "a'y'(b)", 14},
    {"<a><b/>x</a>", kFalse, "a(b)", 8, "xml element attr is error:x"},
    {"<a>x<!-- c -->y</a>", kFalse, "a'x'", 15, "xml element attr is error:y"},
    {"<a>x<![CDATA[y]]></a>", kFalse, "a'x'", 4, kComment},
};

constexpr Row kChildRows[] = {
    {"<a><b/></a>", kTrue, "a(b)", 11},
    {"<a> <b/> </a>", kTrue, "a(b)", 13},
    {"<a><b/><c/></a>", kTrue, "a(b,c)", 15},
    {"<a><b/><b/></a>", kTrue, "a(b,b)", 15},
    {"<a><b><c/></b></a>", kTrue, "a(b(c))", 18},
    {"<a><b></b></a>", kTrue, "a(b(%))", 14},
    {"<a><a></a></a>", kTrue, "a(a(%))", 14},
    {"<a><b>x</b><c>y</c></a>", kTrue, "a(b'x',c'y')", 23},
    {"<a><b/>><c/></a>", kTrue, "a(b,c)", 16},
    {"<a><b/>></a>", kTrue, "a(b,%)", 12},
    {"<a><b", kTrue, "a(b)", 5},
    {"<a><b>x", kTrue, "a(b'x')", 7},
    {"<a><b>", kFalse, "a", 6, kEmpty},
    {"<a><b/>", kTrue, "a(b)", 7},
    {"<a><b/", kFalse, "a", 5, kEmptyElement},
    {"<a><b/><c x></a>", kFalse, "a(b)", 11, "xml element attr is error:x"},
    {"<a><!-- c --></a>", kTrue, "a(%)", 17},
    {"<a><!-- 1 --><!-- 2 --><b/></a>", kTrue, "a(%,b)", 31},
    {"<a><b/><!-- c --><d/></a>", kTrue, "a(b,d)", 25},
    {"<a><!-- c --><b/></a>", kTrue, "a(b)", 21},
    {"<a><!-- c</a>", kFalse, "a", 3, kComment},
    {"<a><b/><!-- c</a>", kFalse, "a(b)", 7, kComment},
    {"<a><b/><?xml?><c/></a>", kTrue, "a(b,c)", 22},
    {"<a><b/><?xml?></a>", kTrue, "a(b,%)", 18},
    {"<a><b/><?xml</a>", kFalse, "a(b)", 7, kDeclaration},
    {"<a><!DOCTYPE x></a>", kFalse, "a(%)", 3, kComment},
    {"<a><b/><!DOCTYPE x></a>", kFalse, "a(b)", 7, kComment},
    {"<a><b/><!</a>", kFalse, "a(b)", 7, kComment},
    {"<a><?php?></a>", kFalse, "a(%)", 3, kDeclaration},
    {"<a><b/><?php?></a>", kFalse, "a(b)", 7, kDeclaration},
    {"<a><b/><1/></a>", kFalse, "a(b)", 7, "xml element a end tag not found"},
    {"<a><b/>< c/></a>", kFalse, "a(b)", 7, "xml element a end tag not found"},
    {"<a><b/><", kFalse, "a(b)", 7, "xml element a end tag not found"},
    {R"(<device><deviceInfo deviceId="10.0.0.5.1.1"/></device>)", kTrue,
     "device(deviceInfo{deviceId=10.0.0.5.1.1})", 54},
};

constexpr Row kAttributeRows[] = {
    {R"(<a x="1"/>)", kTrue, "a{x=1}", 10},
    {R"(<a y="2" x="1"/>)", kTrue, "a{x=1,y=2}", 16},
    {R"(<a x="1"y="2"/>)", kTrue, "a{x=1,y=2}", 15},
    {R"(<a x = "1" />)", kTrue, "a{x=1}", 13},
    {"<a\n\tx=\"1\"\r\n/>", kTrue, "a{x=1}", 13},
    {R"(<a x=""/>)", kTrue, "a", 9},
    {R"(<a x="1" x="2"/>)", kTrue, "a{x=2}", 16},
    {R"(<a x="1" x=""/>)", kTrue, "a", 15},
    {"<a x=\"a b\nc\"/>", kTrue, "a{x=a b\nc}", 14},
    {R"(<a x="<>/&quot;"/>)", kTrue, "a{x=<>/&quot;}", 18},
    {R"(<a x="it's"/>)", kTrue, "a{x=it's}", 13},
    {R"(<a x=" 1 "/>)", kTrue, "a{x= 1 }", 12},
    {R"(<a x-y:z_1="v"/>)", kTrue, "a{x-y:z_1=v}", 16},
    {R"(<a ="1"/>)", kTrue, "a{=1}", 9},
    {R"(<a x="1">t</a>)", kTrue, "a{x=1}'t'", 14},
    {R"(<a x="1"><b y="2"/></a>)", kTrue, "a{x=1}(b{y=2})", 23},
    {R"(<a><b/>="x"</a>)", kTrue, "a{=x}(b)", 15},
    {R"(<a x="1)", kTrue, "a{x=1}", 7},
    {R"(<a x=")", kTrue, "a", 6},
    {"<a x/>", kFalse, "a", 4, "xml element attr is error:x"},
    {"<a x>", kFalse, "a", 4, "xml element attr is error:x"},
    {"<a x", kFalse, "a", 4, "xml element attr is error:x"},
    {R"(<a 1="x"/>)", kFalse, "a", 3, "xml element attr is error:"},
    {R"(<a "x"/>)", kFalse, "a", 3, "xml element attr is error:"},
    {R"(<a y="1" x y="2"/>)", kFalse, "a{y=1}", 11, "xml element attr is error:x"},
    {"<a x='1'/>", kThrows, "a", 5},
    {"<a x=1/>", kThrows, "a", 5},
    {"<a x=/>", kThrows, "a", 5},
    {"<a x= />", kThrows, "a", 6},
    {"<a x=", kThrows, "a", 5},
    {"<a><b x='1'/></a>", kThrows, "a", 8},
    {"<a><b/><c x='1'/></a>", kThrows, "a(b)", 12},
};

Result Parse(Document& document, Element& root) {
  try {
    return document.parse(root) ? Result::kTrue : Result::kFalse;
  } catch (const std::logic_error& fault) {
    EXPECT_STREQ(fault.what(), "xml element attr value should be in double quotes");
    return Result::kThrows;
  } catch (const Endless&) {
    return Result::kEndless;
  }
}

class XmlText : public testing::TestWithParam<Row> {};

TEST_P(XmlText, GivesItsResultTreePositionAndLogLine) {
  ImpatientDocument document;
  document.load(std::string(GetParam().text));
  Element root;
  const zeltest::CapturedLog log;
  EXPECT_EQ(Parse(document, root), GetParam().result);
  EXPECT_EQ(Describe(root), GetParam().tree);
  EXPECT_EQ(document.position(), GetParam().position);
  std::vector<zeltest::LogLine> wanted;
  if (!GetParam().log.empty()) {
    wanted.push_back({"ERROR", "Document.cpp", "libzel::xml::Document::parse", std::string(GetParam().log)});
  }
  EXPECT_EQ(log.Lines(), wanted);
}

INSTANTIATE_TEST_SUITE_P(Prologs, XmlText, testing::ValuesIn(kPrologRows));
INSTANTIATE_TEST_SUITE_P(Tags, XmlText, testing::ValuesIn(kTagRows));
INSTANTIATE_TEST_SUITE_P(Texts, XmlText, testing::ValuesIn(kTextRows));
INSTANTIATE_TEST_SUITE_P(Children, XmlText, testing::ValuesIn(kChildRows));
INSTANTIATE_TEST_SUITE_P(Attributes, XmlText, testing::ValuesIn(kAttributeRows));

TEST(XmlDocumentTest, AFileThatIsNotThereIsNotLoaded) {
  Document document;
  EXPECT_FALSE(document.loadFile(zeltest::TemporaryFolder().Path("none.xml")));
}

TEST(XmlDocumentTest, AFileIsReadWhole) {
  const zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("whole.xml", "<?xml?>\r\n<a>\r\n <b x=\"1\"/>\r\n</a>\r\n");
  Document document;
  ASSERT_TRUE(document.loadFile(path));
  Element root;
  EXPECT_TRUE(document.parse(root));
  EXPECT_EQ(Describe(root), "a(b{x=1})");
}

TEST(XmlDocumentTest, AnEmptyFileIsLoadedAndHasNoDocument) {
  const zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("empty.xml", "");
  Document document;
  ASSERT_TRUE(document.loadFile(path));
  Element root;
  EXPECT_FALSE(document.parse(root));
}

TEST(XmlDocumentTest, LoadingGoesBackToTheStart) {
  Document document;
  document.load("<a/>");
  Element first;
  (void)document.parse(first);
  document.load("<b/>");
  Element second;
  EXPECT_TRUE(document.parse(second));
  EXPECT_EQ(second.name(), "b");
}

TEST(XmlDocumentTest, DeepTreesAreBuiltCopiedAndDestroyed) {
  constexpr int kDepth = 100000;
  std::string text;
  for (int i = 0; i < kDepth; ++i) text += "<a>";
  Document document;
  document.load(text + "x");
  Element root;
  EXPECT_TRUE(document.parse(root));
  const Element copy = root;
  Element part;
  part = copy.children()[0];
  root = std::move(root.children()[0]);
  EXPECT_EQ(root.children().size(), 1U);
  EXPECT_EQ(part.children().size(), 1U);
}

TEST(XmlElementTest, AMissingAttributeIsInsertedWhenItIsRead) {
  Element element;
  EXPECT_EQ(element.attribute("x"), "");
  EXPECT_EQ(element.attributes().count("x"), 1U);
}

TEST(XmlElementTest, AnEmptyValueRemovesTheAttribute) {
  Element element;
  element.attribute("x", "1");
  element.attribute("x", "2");
  EXPECT_EQ(element.attribute("x"), "2");
  element.attribute("x", "");
  element.attribute("y", "");
  EXPECT_TRUE(element.attributes().empty());
}

TEST(XmlElementTest, ACopyIsDeep) {
  Element element;
  element.name("a");
  Element child;
  child.name("b");
  child.text("t");
  element.append(child);
  Element copy = element;
  copy.children()[0].name("c");
  child.name("d");
  EXPECT_EQ(Describe(element), "a(b't')");
  EXPECT_EQ(Describe(copy), "a(c't')");
}

}  // namespace
}  // namespace libzel::xml

// What the parser makes of a text: the value and where it ends, or the fault and where it stands.
#include <gtest/gtest.h>

#include <array>
#include <charconv>
#include <clocale>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "utils/json/JsonParser.h"

namespace libzel {
namespace {

using namespace std::string_view_literals;

// Texts of the table use no other keys.
constexpr std::array kKeys = {"", "a", "b", "c", "\n"};

std::string DoubleText(double number) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

std::string Describe(Json& value);

std::string DescribeArray(Json& value) {
  std::string text = "[";
  for (int32_t i = 0; i < value.size(); ++i) text += (i > 0 ? "," : "") + Describe(value[i]);
  return text + "]";
}

std::string DescribeObject(Json& value) {
  std::string text = "{";
  int32_t found = 0;
  for (const char* key : kKeys) {
    if (!value.has(key)) continue;
    text += (found++ > 0 ? "," : "") + std::string(key) + ":" + Describe(value[key]);
  }
  return found == value.size() ? text + "}" : "object with other keys";
}

std::string Describe(Json& value) {
  switch (value.type()) {
    case JsonType::kNull: return "null";
    case JsonType::kBool: return value.boolean() ? "true" : "false";
    case JsonType::kInt: return "int " + std::to_string(value.integer());
    case JsonType::kDouble: return "double " + DoubleText(value.number());
    case JsonType::kString: return "'" + std::string(value) + "'";
    case JsonType::kArray: return DescribeArray(value);
    case JsonType::kObject: return DescribeObject(value);
  }
  return "no type";
}

struct JsonRow {
  std::string_view text;
  std::string_view outcome;
  size_t position;
};

std::ostream& operator<<(std::ostream& out, const JsonRow& row) { return out << row.text.substr(0, 40); }

constexpr const char* kEnd = "fault: unexpected end of input";
constexpr const char* kBadNull = "fault: parse null error";
constexpr const char* kBadBool = "fault: parse bool error";
constexpr const char* kBadCharacter = "fault: unexpected character in parse json";
constexpr const char* kLeadingZero = "fault: leading 0s not permitted in numbers";
constexpr const char* kBadNumber = "fault: invalid character in number";
constexpr const char* kBadFraction = "fault: at least one digit required in fractional part";
constexpr const char* kEndInString = "fault: unexpected end of input in string";
constexpr const char* kEscape = "fault: not support escaped characters in string";
constexpr const char* kArrayComma = "fault: expected ',' in array";
constexpr const char* kObjectKey = "fault: expected '\"' in object";
constexpr const char* kObjectColon = "fault: expected ':' in object";
constexpr const char* kObjectComma = "fault: expected ',' in object";

constexpr JsonRow kBlankRows[] = {
    {"", kEnd, 0},
    {" ", kEnd, 1},
    {" \t\r\n", kEnd, 4},
    {"\v", kBadCharacter, 1},
    {"\f", kBadCharacter, 1},
    {"\0"sv, kBadCharacter, 1},
    {" \0 1"sv, kBadCharacter, 2},
    {"\xEF\xBB\xBF{}", kBadCharacter, 1},
    {"\xC2\xA0", kBadCharacter, 1},
};

constexpr JsonRow kKeywordRows[] = {
    {"null", "null", 4},
    {" null", "null", 5},
    {"null ", "null", 4},
    {"nullx", "null", 4},
    {"nul", kBadNull, 0},
    {"n", kBadNull, 0},
    {"nil", kBadNull, 0},
    {"nulL", kBadNull, 0},
    {"  nul", kBadNull, 2},
    {"Null", kBadCharacter, 1},
    {"true", "true", 4},
    {"truex", "true", 4},
    {"false", "false", 5},
    {"falsey", "false", 5},
    {"tru", kBadBool, 0},
    {"fals", kBadBool, 0},
    {"t", kBadBool, 0},
    {"f", kBadBool, 0},
    {" f", kBadBool, 1},
    {"talse", kBadBool, 0},
    {"frue", kBadBool, 0},
    {"True", kBadCharacter, 1},
    {"NaN", kBadCharacter, 1},
    {"Infinity", kBadCharacter, 1},
    {"undefined", kBadCharacter, 1},
};

constexpr JsonRow kIntegerRows[] = {
    {"0", "int 0", 1},
    {"-0", "int 0", 2},
    {"1", "int 1", 1},
    {"-1", "int -1", 2},
    {"  7", "int 7", 3},
    {"7 ", "int 7", 1},
    {"12345", "int 12345", 5},
    {"-12345", "int -12345", 6},
    {"2147483647", "int 2147483647", 10},
    {"2147483648", "int 2147483647", 10},
    {"3000000000", "int 2147483647", 10},
    {"-2147483648", "int -2147483648", 11},
    {"-2147483649", "int -2147483648", 11},
    {"99999999999999999999999", "int 2147483647", 23},
    {"-99999999999999999999999", "int -2147483648", 24},
    {"1e3", "int 1", 1},
    {"1E3", "int 1", 1},
    {"-1e3", "int -1", 2},
    {"0e5", "int 0", 1},
    {"0x10", "int 0", 1},
    {"0a", "int 0", 1},
    {"1,5", "int 1", 1},
    {"1\0"sv, "int 1", 1},
    {"01", kLeadingZero, 1},
    {"00", kLeadingZero, 1},
    {"00.5", kLeadingZero, 1},
    {"-01", kLeadingZero, 2},
    {"-", kBadNumber, 1},
    {"-a", kBadNumber, 1},
    {"--1", kBadNumber, 1},
    {"- 1", kBadNumber, 1},
    {"-.5", kBadNumber, 1},
    {"+1", kBadCharacter, 1},
    {".5", kBadCharacter, 1},
};

constexpr JsonRow kDoubleRows[] = {
    {"0.5", "double 0.5", 3},
    {"-0.5", "double -0.5", 4},
    {"0.0", "double 0", 3},
    {"-0.0", "double -0", 4},
    {"1.50", "double 1.5", 4},
    {"1.5.5", "double 1.5", 3},
    {"0.25x", "double 0.25", 4},
    {"0.1", "double 0.1", 3},
    {"3.141592653589793", "double 3.141592653589793", 17},
    {"123456789.125", "double 123456789.125", 13},
    {"2147483648.5", "double 2147483648.5", 12},
    {"1.5e3", "double 1500", 3},
    {"1.5E3", "double 1500", 3},
    {"1.5e+3", "double 1500", 3},
    {"1.5e-3", "double 0.0015", 3},
    {"-1.5e3", "double -1500", 4},
    {"1.5e", "double 1.5", 3},
    {"1.5e+", "double 1.5", 3},
    {"1.5ex", "double 1.5", 3},
    {"1.5 e3", "double 1.5", 3},
    {"4.9e-324", "double 5e-324", 3},
    {"1.7976931348623157e308", "double 1.7976931348623157e+308", 18},
    {"1.0e400", "double inf", 3},
    {"-1.0e400", "double -inf", 4},
    {"1.0e-400", "double 0", 3},
    {"-1.0e-400", "double -0", 4},
    {"0.0e400", "double 0", 3},
    {"1.5e99999999999999999999", "double inf", 3},
    {"1.5e-99999999999999999999", "double 0", 3},
    {"1.", kBadFraction, 2},
    {"1.a", kBadFraction, 2},
    {"1.e3", kBadFraction, 2},
    {"1.-5", kBadFraction, 2},
    {"-0.", kBadFraction, 3},
};

constexpr JsonRow kStringRows[] = {
    {R"("")", "''", 2},
    {R"("a")", "'a'", 3},
    {R"( "a")", "'a'", 4},
    {R"("abc" x)", "'abc'", 5},
    {R"("a""b")", "'a'", 3},
    {R"("null")", "'null'", 6},
    {R"("{}[],:")", "'{}[],:'", 8},
    {R"("a'b")", "'a'b'", 5},
    {"\"a\nb\tc\"", "'a\nb\tc'", 7},
    {"\"a\0b\""sv, "'a\0b'"sv, 5},
    {"\"\xFF\x80\x01\"", "'\xFF\x80\x01'", 5},
    {"\"\xC3\xA9\"", "'\xC3\xA9'", 4},
    {R"("  a ")", "'  a '", 6},
    {"\"", kEndInString, 1},
    {"\"abc", kEndInString, 4},
    {"\"abc\0"sv, kEndInString, 5},
    {R"("a\nb")", kEscape, 3},
    {R"("\"")", kEscape, 2},
    {R"("\\")", kEscape, 2},
    {R"("\u0041")", kEscape, 2},
    {"\"abc\\", kEscape, 5},
    {"'a'", kBadCharacter, 1},
};

constexpr JsonRow kArrayRows[] = {
    {"[]", "[]", 2},
    {"[ ]", "[]", 3},
    {" [ \t\r\n ]", "[]", 8},
    {"[1]", "[int 1]", 3},
    {"[1,2]", "[int 1,int 2]", 5},
    {"[ 1 , 2 ]", "[int 1,int 2]", 9},
    {"[null,true,false]", "[null,true,false]", 17},
    {R"(["a","b"])", "['a','b']", 9},
    {"[1.5,-2]", "[double 1.5,int -2]", 8},
    {"[[]]", "[[]]", 4},
    {"[[],[]]", "[[],[]]", 7},
    {"[[[[1]]]]", "[[[[int 1]]]]", 9},
    {"[[1,2],[3]]", "[[int 1,int 2],[int 3]]", 11},
    {"[{},{}]", "[{},{}]", 7},
    {"[1]]", "[int 1]", 3},
    {"[1]x", "[int 1]", 3},
    {"[1][2]", "[int 1]", 3},
    {"[", kEnd, 1},
    {"[ ", kEnd, 2},
    {"[1", kEnd, 2},
    {"[1,", kEnd, 3},
    {"[1, ", kEnd, 4},
    {"[[1]", kEnd, 4},
    {"[1,]", kBadCharacter, 4},
    {"[,1]", kBadCharacter, 2},
    {"[,]", kBadCharacter, 2},
    {"[1,,2]", kBadCharacter, 4},
    {"[}", kBadCharacter, 2},
    {"]", kBadCharacter, 1},
    {"[1 2]", kArrayComma, 4},
    {"[1}", kArrayComma, 3},
    {"[1:2]", kArrayComma, 3},
    {"[1e3]", kArrayComma, 3},
    {"[1.5e3]", kArrayComma, 5},
    {"[truefalse]", kArrayComma, 6},
    {R"(["a" "b"])", kArrayComma, 6},
    {"[1\0]"sv, kArrayComma, 3},
    {"[nul]", kBadNull, 1},
    {"[01]", kLeadingZero, 2},
    {R"(["a])", kEndInString, 4},
};

constexpr JsonRow kObjectRows[] = {
    {"{}", "{}", 2},
    {"{ }", "{}", 3},
    {"{}x", "{}", 2},
    {"{} {}", "{}", 2},
    {R"({"a":1})", "{a:int 1}", 7},
    {R"({ "a" : 1 })", "{a:int 1}", 11},
    {R"({"a":1,"b":2})", "{a:int 1,b:int 2}", 13},
    {R"({"b":2,"a":1})", "{a:int 1,b:int 2}", 13},
    {R"({"a":1 , "b":2})", "{a:int 1,b:int 2}", 15},
    {R"({"a":1,"a":2})", "{a:int 2}", 13},
    {R"({"a":{"b":1},"a":[]})", "{a:[]}", 20},
    {R"({"a":[1],"b":0,"a":[2]})", "{a:[int 2],b:int 0}", 23},
    {R"({"":1})", "{:int 1}", 6},
    {"{\"\n\":1}", "{\n:int 1}", 7},
    {R"({"a":null})", "{a:null}", 10},
    {R"({"a":"b"})", "{a:'b'}", 9},
    {R"({"a":[1,{"b":"c"}]})", "{a:[int 1,{b:'c'}]}", 19},
    {R"({"a":{"a":{"a":{}}}})", "{a:{a:{a:{}}}}", 20},
    {R"({"a":1}})", "{a:int 1}", 7},
    {"{", kEnd, 1},
    {"{ ", kEnd, 2},
    {R"({"a")", kEnd, 4},
    {R"({"a":)", kEnd, 5},
    {R"({"a":1)", kEnd, 6},
    {R"({"a":1,)", kEnd, 7},
    {R"({")", kEndInString, 2},
    {R"({"a)", kEndInString, 3},
    {R"({"a\n":1})", kEscape, 4},
    {R"({,})", kObjectKey, 2},
    {R"({1:2})", kObjectKey, 2},
    {R"({a:1})", kObjectKey, 2},
    {R"({'a':1})", kObjectKey, 2},
    {R"({null:1})", kObjectKey, 2},
    {R"({{}})", kObjectKey, 2},
    {R"({[]:1})", kObjectKey, 2},
    {R"({"a":1,})", kObjectKey, 8},
    {R"({"a":1,2})", kObjectKey, 8},
    {R"({"a":1,,})", kObjectKey, 8},
    {R"({"a" 1})", kObjectColon, 6},
    {R"({"a"})", kObjectColon, 5},
    {R"({"a",1})", kObjectColon, 5},
    {R"({"a"=1})", kObjectColon, 5},
    {R"({"a":1 "b":2})", kObjectComma, 8},
    {R"({"a":1])", kObjectComma, 7},
    {R"({"a":1;"b":2})", kObjectComma, 7},
    {R"({"a":1e3})", kObjectComma, 7},
    {R"({"a":})", kBadCharacter, 6},
    {R"({"a"::1})", kBadCharacter, 6},
    {R"({"a":01})", kLeadingZero, 6},
    {R"({"a":[1 2]})", kArrayComma, 9},
    {"}", kBadCharacter, 1},
    {":", kBadCharacter, 1},
    {",", kBadCharacter, 1},
    {"//", kBadCharacter, 1},
};

struct Outcome {
  std::string what;
  size_t position;

  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << outcome.what << " at " << outcome.position;
}

Outcome Parse(std::string_view text) {
  JsonParser parser;
  parser.load(std::string(text));
  Json value;
  try {
    const std::string what = Describe(parser.parse(value));
    return {what, parser.position()};
  } catch (const std::logic_error& fault) {
    return {std::string("fault: ") + fault.what(), parser.position()};
  }
}

class JsonText : public testing::TestWithParam<JsonRow> {};

TEST_P(JsonText, GivesItsValueOrItsFaultAndThePosition) {
  EXPECT_EQ(Parse(GetParam().text), (Outcome{std::string(GetParam().outcome), GetParam().position}));
}

INSTANTIATE_TEST_SUITE_P(Blanks, JsonText, testing::ValuesIn(kBlankRows));
INSTANTIATE_TEST_SUITE_P(Keywords, JsonText, testing::ValuesIn(kKeywordRows));
INSTANTIATE_TEST_SUITE_P(Integers, JsonText, testing::ValuesIn(kIntegerRows));
INSTANTIATE_TEST_SUITE_P(Doubles, JsonText, testing::ValuesIn(kDoubleRows));
INSTANTIATE_TEST_SUITE_P(Strings, JsonText, testing::ValuesIn(kStringRows));
INSTANTIATE_TEST_SUITE_P(Arrays, JsonText, testing::ValuesIn(kArrayRows));
INSTANTIATE_TEST_SUITE_P(Objects, JsonText, testing::ValuesIn(kObjectRows));

TEST(JsonParserTest, AFreshParserHasAnEmptyText) {
  JsonParser parser;
  Json value;
  EXPECT_EQ(parser.position(), 0U);
  EXPECT_THROW(parser.parse(value), std::logic_error);
}

TEST(JsonParserTest, ParseGivesTheValueThatItFilled) {
  JsonParser parser;
  parser.load("5");
  Json value;
  EXPECT_EQ(&parser.parse(value), &value);
}

TEST(JsonParserTest, ParsingAgainGoesOnBehindTheFirstValue) {
  JsonParser parser;
  parser.load("1 [2]");
  Json value;
  parser.parse(value);
  EXPECT_EQ(Describe(parser.parse(value)), "[int 2]");
  EXPECT_EQ(parser.position(), 5U);
}

TEST(JsonParserTest, LoadGoesBackToTheStart) {
  JsonParser parser;
  parser.load("12");
  Json value;
  parser.parse(value);
  parser.load("3");
  EXPECT_EQ(Describe(parser.parse(value)), "int 3");
}

TEST(JsonParserTest, AFaultLeavesTheValueAlone) {
  JsonParser parser;
  parser.load("[1,2");
  Json value(int32_t{7});
  EXPECT_THROW(parser.parse(value), std::logic_error);
  EXPECT_EQ(Describe(value), "int 7");
}

TEST(JsonParserTest, AValueReplacesWhatWasThere) {
  JsonParser parser;
  parser.load("{}");
  Json value;
  value["a"] = Json(true);
  EXPECT_EQ(Describe(parser.parse(value)), "{}");
}

TEST(JsonParserTest, NumbersOfAnyLengthAreRead) {
  const std::string ones(400, '1');
  const std::string zeros(400, '0');
  EXPECT_EQ(Parse(ones + ".5"), (Outcome{"double inf", 402}));
  EXPECT_EQ(Parse("-" + ones + ".5"), (Outcome{"double -inf", 403}));
  EXPECT_EQ(Parse(ones + ".5e-400"), (Outcome{"double 0.1111111111111111", 402}));
  EXPECT_EQ(Parse("0." + zeros + "1"), (Outcome{"double 0", 403}));
  EXPECT_EQ(Parse("0." + zeros + "1e401"), (Outcome{"double 1", 403}));
  EXPECT_EQ(Parse("0." + zeros + "1e800"), (Outcome{"double inf", 403}));
  EXPECT_EQ(Parse(ones), (Outcome{"int 2147483647", 400}));
}

TEST(JsonParserTest, NumbersDoNotFollowTheLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  ASSERT_TRUE(std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr ||
              std::setlocale(LC_ALL, "German") != nullptr);
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  JsonParser parser;
  parser.load("1.5");
  Json value;
  parser.parse(value);
  std::setlocale(LC_ALL, before.c_str());
  EXPECT_EQ(value.number(), 1.5);
}

TEST(JsonParserTest, AMillionOpenBracketsAreAPlainFault) {
  JsonParser parser;
  parser.load(std::string(1000000, '['));
  Json value;
  EXPECT_THROW(parser.parse(value), std::logic_error);
  EXPECT_EQ(parser.position(), 1000000U);
}

TEST(JsonParserTest, ADeepTreeIsBuiltCopiedAssignedAndDestroyed) {
  std::string text;
  for (int i = 0; i < 50000; ++i) text += R"([{"a":)";
  text += "1";
  for (int i = 0; i < 50000; ++i) text += "}]";
  JsonParser parser;
  parser.load(text);
  Json value;
  parser.parse(value);
  Json copy(value);
  Json part;
  part = copy[0]["a"];
  copy = part;
  EXPECT_EQ(copy[0].has("a"), true);
}

}  // namespace
}  // namespace libzel

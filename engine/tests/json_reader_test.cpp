#include "morvane/engine/support/json.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>

namespace morvane {
namespace {

std::string failureOf(const std::function<void()>& read) {
    try {
        read();
    } catch (const JsonDecodeError& e) {
        return e.what();
    }
    return "(no failure)";
}

TEST(JsonReader, pathsNameNestedMembersAndEscapePointerTokens) {
    const Json doc = parseJson(R"({"a":{"list":[1,{"x/y~z":"s"}]}})", "doc.json");
    const JsonReader root(doc, "doc.json");
    const JsonReader a = root["a"];
    const JsonReader list = a["list"];
    const JsonReader second = list.at(1);
    EXPECT_EQ(second["x/y~z"].path(), "/a/list/1/x~1y~0z");
    EXPECT_EQ(root.path(), "/");
    EXPECT_EQ(failureOf([&] { (void)second["x/y~z"].get<int>(); }),
              "doc.json: /a/list/1/x~1y~0z: expected an integer, found a string");
    EXPECT_EQ(failureOf([&] { (void)list.at(5); }), "doc.json: /a/list: array has no element 5");
    EXPECT_EQ(failureOf([&] { (void)a["list"].get<std::vector<int>>(); }),
              "doc.json: /a/list/1: expected an integer, found an object");
}

TEST(JsonReader, integersAcceptWholeNumbersWithinRangeOnly) {
    const Json doc = parseJson(
        R"({"whole":3.0,"big":4294967296,"neg":-2147483649,"huge":18446744073709551615,"frac":0.5,"ok":-12})",
        "n");
    const JsonReader r(doc);
    EXPECT_EQ(r["whole"].get<int>(), 3);
    EXPECT_EQ(r["big"].get<std::int64_t>(), 4294967296LL);
    EXPECT_EQ(r["ok"].get<int>(), -12);
    EXPECT_EQ(failureOf([&] { (void)r["big"].get<int>(); }), "/big: integer out of range");
    EXPECT_EQ(failureOf([&] { (void)r["neg"].get<int>(); }), "/neg: integer out of range");
    EXPECT_EQ(failureOf([&] { (void)r["huge"].get<std::int64_t>(); }), "/huge: integer out of range");
    EXPECT_EQ(failureOf([&] { (void)r["frac"].get<int>(); }), "/frac: expected an integer, found 0.500000");
    EXPECT_DOUBLE_EQ(r["ok"].get<double>(), -12.0);
}

TEST(JsonReader, optionalMembersTreatNullAsAbsent) {
    const Json doc = parseJson(R"({"n":null,"s":"x"})", "o");
    const JsonReader r(doc);
    EXPECT_FALSE(r.optional<std::string>("n").has_value());
    EXPECT_FALSE(r.optional<std::string>("missing").has_value());
    EXPECT_EQ(r.optional<std::string>("s"), "x");
    EXPECT_EQ(r.valueOr<std::string>("missing", "d"), "d");
    EXPECT_EQ(failureOf([&] { (void)r.optional<int>("s"); }), "/s: expected an integer, found a string");
}

TEST(JsonReader, syntaxErrorsNameTheDocumentAndPosition) {
    const std::string message = failureOf([] { (void)parseJson(R"({"a": [1, 2)", "project.json"); });
    EXPECT_TRUE(message.starts_with("project.json: not valid JSON: parse error at line 1, column 12"))
        << message;
    EXPECT_EQ(failureOf([] { (void)parseJson("", "empty.json"); }).substr(0, 30),
              "empty.json: not valid JSON: pa");
    // nlohmann reports a number beyond the double range apart from syntax errors; it is refused the same way.
    EXPECT_EQ(failureOf([] { (void)parseJson(R"({"rate": 1e400})", "plan.json"); }),
              "plan.json: not valid JSON: number overflow parsing '1e400'");
}

TEST(JsonWriter, keepsInsertionOrderAndIsLocaleFree) {
    Json j = Json::object();
    j["zeta"] = 0.55;
    j["alpha"] = "caf\xc3\xa9";
    j["bad"] = std::string("\xff");
    EXPECT_EQ(dumpJson(j, -1), "{\"zeta\":0.55,\"alpha\":\"caf\xc3\xa9\",\"bad\":\"\xef\xbf\xbd\"}");
}

}  // namespace
}  // namespace morvane

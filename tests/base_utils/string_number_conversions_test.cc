#include "base/strings/string_number_conversions.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <regex>
#include <string>

namespace {

TEST(StringToDoubleTest, AcceptsWholeDecimalNumbers) {
    const struct {
        std::string input;
        double expected;
    } kCases[] = {
        {"0.5", 0.5},
        {"2.5e-3", 0.0025},
        {".5", 0.5},
        {"6.", 6.0},
        {"+1e3", 1000.0},
        {"-12.25E+1", -122.5},
        {"00012.50e-0001", 1.25},
        {"1e-400", 0.0},
        {"4.9e-324", std::numeric_limits<double>::denorm_min()},
        {"1.7976931348623157e308", std::numeric_limits<double>::max()},
        {"123456789012345678901234567890", 1.2345678901234568e29},
    };
    for (const auto& c : kCases) {
        double out = -42.0;
        EXPECT_TRUE(base::StringToDouble(c.input, &out)) << c.input;
        EXPECT_EQ(out, c.expected) << c.input;
    }

    double out = 1.0;
    ASSERT_TRUE(base::StringToDouble("-0", &out));
    EXPECT_EQ(out, 0.0);
    EXPECT_TRUE(std::signbit(out));
}

TEST(StringToDoubleTest, RejectsAnythingElse) {
    const std::string kCases[] = {"",      "abc",    "1.5x", " 2",  "0.5\n",    "1 ",   "\t1",
                                  "inf",   "-INF",   "nan",  "NaN", "Infinity", "0x10", "0x1p3",
                                  "1e400", "-1e400", ".",    "+",   "-",        "e5",   "1e",
                                  "1e+",   ".e1",    "--1",  "+-1", "1.5e3.2",  "1,5",  "1..2"};
    for (const auto& input : kCases) {
        double out = 0.0;
        EXPECT_FALSE(base::StringToDouble(input, &out)) << '"' << input << '"';
    }
    double out = 0.0;
    EXPECT_FALSE(base::StringToDouble("1.7976931348623159e308", &out));  // rounds to infinity
    EXPECT_FALSE(base::StringToDouble(std::string("1\0", 2), &out));
}

// Reference: the grammar as a regular expression, values from strtod in the C locale.
bool ReferenceParse(const std::string& input, double* out) {
    static const std::regex kNumber(R"([+-]?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?)");
    if (!std::regex_match(input, kNumber)) return false;
    *out = std::strtod(input.c_str(), nullptr);
    return std::isfinite(*out);
}

void ExpectMatchesReference(const std::string& input) {
    double expected = 0.0;
    double actual = 0.0;
    const bool ok = ReferenceParse(input, &expected);
    ASSERT_EQ(base::StringToDouble(input, &actual), ok) << '"' << input << '"';
    if (ok) {
        EXPECT_EQ(actual, expected) << input;
    }
}

TEST(StringToDoubleTest, MatchesReferenceOnGeneratedStrings) {
    std::mt19937 rng(12345);
    const std::string kAlphabet = "0123456789000111+-.eE.x \ni";
    std::uniform_int_distribution<size_t> pick(0, kAlphabet.size() - 1);
    std::uniform_int_distribution<int> length(0, 9);
    for (int i = 0; i < 20000; ++i) {
        std::string input;
        for (int n = length(rng); n > 0; --n) input += kAlphabet[pick(rng)];
        ExpectMatchesReference(input);
    }

    // Well-formed numbers across the whole exponent range, including overflow and underflow.
    std::uniform_int_distribution<int> digit(0, 9);
    std::uniform_int_distribution<int> exponent(-420, 420);
    for (int i = 0; i < 5000; ++i) {
        std::string input = std::to_string(digit(rng)) + "." + std::to_string(digit(rng)) +
                            std::to_string(digit(rng)) + "e" + std::to_string(exponent(rng));
        ExpectMatchesReference(input);
    }
}

TEST(NumberToStringTest, RoundTripsDoubles) {
    EXPECT_EQ(base::NumberToString(0.5), "0.5");
    EXPECT_EQ(base::NumberToString(1e-5), "1e-05");
    EXPECT_EQ(base::NumberToString(-3), "-3");

    std::mt19937_64 rng(7);
    for (int i = 0; i < 2000; ++i) {
        uint64_t bits = rng();
        double value = 0.0;
        static_assert(sizeof(bits) == sizeof(value), "");
        std::memcpy(&value, &bits, sizeof(value));
        if (!std::isfinite(value)) continue;
        double back = 0.0;
        ASSERT_TRUE(base::StringToDouble(base::NumberToString(value), &back)) << value;
        EXPECT_EQ(back, value);
    }
}

}  // namespace

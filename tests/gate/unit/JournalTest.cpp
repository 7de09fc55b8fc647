#include "Journal.h"

#include <gtest/gtest.h>

namespace {

using zelgate::Printable;

TEST(JournalTest, PlainTextStays) { EXPECT_EQ(Printable("press 7, \xC3\xA4"), "press 7, \xC3\xA4"); }

TEST(JournalTest, ALineEndCannotBeginALineOfItsOwn) { EXPECT_EQ(Printable("a\n<3>b"), "a\\x0a<3>b"); }

TEST(JournalTest, EscapeSequencesAreShown) { EXPECT_EQ(Printable("\x1B[2J\xC2\x9B"), "\\x1b[2J\\xc2\\x9b"); }

TEST(JournalTest, WhatIsNoUtf8IsShown) { EXPECT_EQ(Printable("\xFF\xC3"), "\\xff\\xc3"); }

}  // namespace

#include "support/console_capture.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

using test::Printed;

TEST(Printed, IsEveryByteThatWasWritten) {
    const std::string bytes("a\r\nb\n\0\x1A\xFF", 8);
    EXPECT_EQ(Printed([&] { std::fwrite(bytes.data(), 1, bytes.size(), stdout); }), bytes);
    EXPECT_EQ(Printed([] {}), "");
}

TEST(Printed, Nests) {
    std::string inner;
    EXPECT_EQ(Printed([&] {
                  std::printf("before ");
                  inner = Printed([] { std::printf("inside"); });
                  std::printf("after");
              }),
              "before after");
    EXPECT_EQ(inner, "inside");
}

TEST(Printed, HoldsMoreThanABlock) {
    const std::string text(10'000, 'x');
    EXPECT_EQ(Printed([&] { std::fputs(text.c_str(), stdout); }), text);
}

TEST(Printed, RestoresStandardOutputWhenTheActionThrows) {
    bool thrown = false;
    EXPECT_EQ(Printed([&] {
                  try {
                      Printed([] {
                          std::printf("inside");
                          throw std::runtime_error("from the action");
                      });
                  } catch (const std::runtime_error&) {
                      thrown = true;
                  }
                  std::printf("after");
              }),
              "after");
    EXPECT_TRUE(thrown);
}

TEST(Printed, RestoresTheTextModeOfStandardOutput) {
    Printed([] {});
    const int mode = ::_setmode(::_fileno(stdout), _O_TEXT);
    EXPECT_EQ(mode, _O_TEXT);
}

}  // namespace

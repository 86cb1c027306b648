#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/assert.h"
#include "common/logging_bind.h"
#include "common/message_ids.h"
#include "common/site.h"
#include "common/trace.h"
#include "common/trace_logic.h"

namespace Common {
namespace {

struct Line {
  std::uint32_t Tag;
  int Level;
  std::uint32_t Module;
  std::uint32_t Code;
  std::u16string Text;
};

class RecordingSink final : public TraceLogic {
 public:
  explicit RecordingSink(bool ignoresLevel = false) : ignoresLevel_(ignoresLevel) {}
  void Trace(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
             const char16_t* text) override {
    Lines.push_back({tag, level, module, code, text});
  }
  void TraceData(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
                 const char16_t* text, const void*, std::size_t) override {
    Trace(tag, level, module, code, text);
  }
  void TraceError(std::uint32_t tag, int level, const Error& error) override {
    Lines.push_back({tag, level, error.Code() >> 16, error.Code(), error.GetText()});
  }
  bool IgnoresLevel() const override { return ignoresLevel_; }
  std::vector<Line> Lines;

 private:
  bool ignoresLevel_;
};

TEST(TraceTest, SinksGetWhatTheirLevelRuleLetsThroughAndTheCompositeComesAndGoes) {
  SetTraceLevel(2);
  RecordingSink plain, everything(true), tagged;
  Trace(5, 83, 1, u"nobody listens");  // no composite yet: nothing to reach, nothing to crash
  RegisterTraceLogic(&plain);
  RegisterTraceLogic(&everything);
  RegisterTraceLogic(&tagged, 77);
  Trace(1, 83, 2, u"below");
  Trace(2, 83, 3, u"at");
  TraceMessage(2, kProviderTraceModule, 0, Msg::OpeningVM, {u"Web"});
  TraceMessage(1, kProviderTraceModule, 0, Msg::OpeningVM, {u"Hidden"});  // formats nothing, reaches no one
  TraceErrorValue(4, Error(VR_SITE, 0x3C0042, "broken"));

  struct Case {
    const RecordingSink* Sink;
    std::vector<std::u16string> Texts;
    std::uint32_t Tag;
  } cases[] = {
      {&plain, {u"at", u"Opening virtual machine 'Web'.", u"broken"}, 0},
      {&everything, {u"below", u"at", u"Opening virtual machine 'Web'.", u"broken"}, 0},
      {&tagged, {u"below", u"at", u"Opening virtual machine 'Web'.", u"broken"}, 77},
  };
  for (const Case& c : cases) {
    std::vector<std::u16string> texts;
    for (const Line& line : c.Sink->Lines) {
      texts.push_back(line.Text);
      EXPECT_EQ(line.Tag, c.Tag);
    }
    EXPECT_EQ(texts, c.Texts) << "sink with tag " << c.Tag;
  }
  EXPECT_EQ(plain.Lines.back().Code, 0x3C0042u);

  // A failed assertion arrives as an event once tracing is set up: its text,
  // then its stack as one line.
  testing::internal::CaptureStderr();
  Assert("1 == 2", "here.cc", 9);
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(plain.Lines.size(), 5u);
  EXPECT_EQ(plain.Lines[3].Text, u"Assertion failed: 1 == 2, file here.cc, line 9");
  EXPECT_EQ(plain.Lines[3].Level, 5);
  EXPECT_EQ(plain.Lines[3].Module, 0u);
  EXPECT_EQ(plain.Lines[3].Code, 27u);
  EXPECT_FALSE(plain.Lines[4].Text.empty());

  UnregisterTraceLogic(&plain);
  UnregisterTraceLogic(&everything);
  UnregisterTraceLogic(&tagged);
  Trace(5, 83, 4, u"after the last");  // the composite is gone, not dangling
  RecordingSink again;
  RegisterTraceLogic(&again);
  Trace(5, 83, 5, u"new composite");
  UnregisterTraceLogic(&again);
  EXPECT_EQ(plain.Lines.size(), 5u);
  ASSERT_EQ(again.Lines.size(), 1u);
  EXPECT_EQ(again.Lines[0].Text, u"new composite");
}

// The logging library, loaded the way the module loads it, in a fresh
// process each time, since it decides its destination once.
TEST(LoggingLibraryTest, WritesToStandardErrorWithoutAJournalAndNothingWhenOff) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct Case {
    const char* Mode;
    const char* Expected;
  } cases[] = {
      {nullptr,
       "^vellumrig: level 2, facility 83, code 0x7: replay step \xc3\xa4\n"
       "vellumrig: level 4, facility 60, code 0x3C0042: broken\n\n    Error code: 0x3C0042.*\nend\n$"},
      {"off", "^end\n$"},
  };
  for (const Case& c : cases) {
    EXPECT_EXIT(
        {
          ::setenv("VELLUMRIG_JOURNAL_SOCKET", "/nonexistent/journal/socket", 1);
          if (c.Mode) ::setenv("VELLUMRIG_LOGGING", c.Mode, 1);
          Logging::RegisterLoggingSink();
          SetTraceLevel(2);
          Trace(1, 83, 6, u"too low");
          Trace(2, 83, 7, u"replay step \u00e4");
          TraceErrorValue(4, Error(VR_SITE, 0x3C0042, "broken"));
          std::fputs("end\n", stderr);
          std::exit(0);
        },
        testing::ExitedWithCode(0), c.Expected)
        << (c.Mode ? c.Mode : "journal");
  }
}

}  // namespace
}  // namespace Common

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vrig_run.h"

namespace {

HostTest::Outcome Vrig(const HostTest::TempDir& dir, const std::string& arguments) {
  return HostTest::Shell("cd " + dir.Path() + " && env LANGUAGE=en " VRIG_PATH " xml convert " + arguments);
}

// A .vmc goes to the binary form and back to the same bytes; an existing
// output is never replaced, and a failed conversion leaves no file behind.
TEST(XmlConvertTest, RoundTripsAndNeverOverwrites) {
  HostTest::TempDir dir;
  const std::string vmc =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n<preferences><a type=\"string\">x y"
      "</a>\r\n<b/></preferences>\r\n";
  HostTest::WriteBytes(dir.Join("m.vmc"), vmc);
  EXPECT_EQ(Vrig(dir, "m.vmc m.bin --binary").status, 0);
  EXPECT_EQ(HostTest::ReadBytes(dir.Join("m.bin")).substr(0, 6), "BXML\1\1");
  EXPECT_EQ(Vrig(dir, "m.bin back.vmc --text").status, 0);
  EXPECT_EQ(HostTest::ReadBytes(dir.Join("back.vmc")), vmc);

  VrigTest::ExpectRun(Vrig(dir, "m.vmc back.vmc --binary"), 1, "exists");
  EXPECT_EQ(HostTest::ReadBytes(dir.Join("back.vmc")), vmc);

  const std::string binary = HostTest::ReadBytes(dir.Join("m.bin"));
  HostTest::WriteBytes(dir.Join("cut.bin"), binary.substr(0, binary.size() - 3));
  const HostTest::Outcome cut = Vrig(dir, "cut.bin cut.vmc --text");
  EXPECT_EQ(cut.status, 1);
  // The reader's internal assertion stays out of what the user reads.
  EXPECT_EQ(cut.output, "vrig: Failed to parse the XML.\n  End of file has been encountered.\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 4);
}

}  // namespace

#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "provider/processor_info.h"

namespace VirtualWareRaw {
namespace {

// A processor described by a table of leaves; absent leaves read as zeros.
std::map<std::uint32_t, CpuidRegisters> g_leaves;

CpuidRegisters FromTable(std::uint32_t leaf) {
  auto it = g_leaves.find(leaf);
  return it == g_leaves.end() ? CpuidRegisters{} : it->second;
}

std::uint32_t Word(const char* four) {
  std::uint32_t w;
  std::memcpy(&w, four, 4);
  return w;
}

void SetVendor(const char* twelve) {
  g_leaves[0] = {1, Word(twelve), Word(twelve + 8), Word(twelve + 4)};
}

TEST(ProcessorInfoTest, VendorFamilyModelAndBrandComeFromTheirLeaves) {
  g_leaves.clear();
  SetVendor("GenuineIntel");
  // Family 6, model 0xE, extended model 9: model 0x9E.
  g_leaves[1] = {(9u << 16) | (6u << 8) | (0xEu << 4), 0, 0, 0};
  g_leaves[0x80000000] = {0x80000004, 0, 0, 0};
  g_leaves[0x80000001] = {0, 0, 0, 1u << 29};
  const char brand[48] = "Example CPU @ 3.00GHz";
  for (std::uint32_t i = 0; i < 3; ++i) {
    const char* part = brand + 16 * i;
    g_leaves[0x80000002 + i] = {Word(part), Word(part + 4), Word(part + 8), Word(part + 12)};
  }
  const ProcessorInfo info = ReadProcessorInfo(&FromTable);
  EXPECT_EQ(info.Vendor, "GenuineIntel");
  EXPECT_EQ(info.Family, 6u);
  EXPECT_EQ(info.Model, 0x9Eu);
  EXPECT_TRUE(info.Is64Bit);
  EXPECT_EQ(info.Brand, "Example CPU @ 3.00GHz");
  EXPECT_EQ(CpuArchitecture(info), "Intel64");
}

TEST(ProcessorInfoTest, FamilyFifteenAddsTheExtendedFamily) {
  g_leaves.clear();
  SetVendor("AuthenticAMD");
  g_leaves[1] = {(1u << 20) | (2u << 16) | (15u << 8) | (3u << 4), 0, 0, 0};
  g_leaves[0x80000000] = {0x80000001, 0, 0, 0};
  g_leaves[0x80000001] = {0, 0, 0, 1u << 29};
  const ProcessorInfo info = ReadProcessorInfo(&FromTable);
  EXPECT_EQ(info.Family, 16u);
  EXPECT_EQ(info.Model, 0x23u);
  EXPECT_TRUE(info.Brand.empty());  // leaves past 0x80000001 are not there
  EXPECT_EQ(CpuArchitecture(info), "AMD64");
}

TEST(ProcessorInfoTest, ArchitectureDependsOnTheWholeVendorAndTheSixtyFourBitFlag) {
  g_leaves.clear();
  SetVendor("HygonGenuine");
  g_leaves[1] = {5u << 8, 0, 0, 0};  // family 5: no extended model
  g_leaves[0x80000000] = {0x80000001, 0, 0, 0};
  g_leaves[0x80000001] = {0, 0, 0, 1u << 29};
  ProcessorInfo info = ReadProcessorInfo(&FromTable);
  EXPECT_EQ(info.Family, 5u);
  EXPECT_EQ(CpuArchitecture(info), "");
  info.Vendor = "GenuineIntex";
  EXPECT_EQ(CpuArchitecture(info), "");

  g_leaves[0x80000000] = {0x80000000, 0, 0, 0};  // no extended leaf: not 64-bit
  info = ReadProcessorInfo(&FromTable);
  EXPECT_FALSE(info.Is64Bit);
  EXPECT_EQ(CpuArchitecture(info), "x86");
}

TEST(ProcessorInfoTest, ThisMachineIsReadOnce) {
  const ProcessorInfo& a = ThisProcessor();
  EXPECT_EQ(&a, &ThisProcessor());
  EXPECT_EQ(a.Vendor.size(), 12u);
  EXPECT_TRUE(a.Is64Bit);  // the module is built for x86-64 only
}

}  // namespace
}  // namespace VirtualWareRaw

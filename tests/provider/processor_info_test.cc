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

TEST(ProcessorInfoTest, VendorFamilyModelBrandAndArchitectureComeFromTheirLeaves) {
  struct Case {
    const char* vendor;
    std::uint32_t leaf1, lastExtended, family, model;
    bool is64;
    const char* brand;
    const char* architecture;
  };
  const Case cases[] = {
      // Family 6, model 0xE, extended model 9: model 0x9E.
      {"GenuineIntel", (9u << 16) | (6u << 8) | (0xEu << 4), 0x80000004, 6, 0x9E, true,
       "Example CPU @ 3.00GHz", "Intel64"},
      // Family 15 adds the extended family; leaves past 0x80000001 are not there.
      {"AuthenticAMD", (1u << 20) | (2u << 16) | (15u << 8) | (3u << 4), 0x80000001, 16, 0x23,
       true, "", "AMD64"},
      {"HygonGenuine", 5u << 8, 0x80000001, 5, 0, true, "", ""},  // family 5: no extended model
      {"GenuineIntex", 6u << 8, 0x80000001, 6, 0, true, "", ""},
      {"GenuineIntel", 6u << 8, 0x80000000, 6, 0, false, "", "x86"},  // no extended leaf
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.vendor);
    g_leaves.clear();
    g_leaves[0] = {1, Word(c.vendor), Word(c.vendor + 8), Word(c.vendor + 4)};
    g_leaves[1] = {c.leaf1, 0, 0, 0};
    g_leaves[0x80000000] = {c.lastExtended, 0, 0, 0};
    g_leaves[0x80000001] = {0, 0, 0, 1u << 29};
    char brand[48] = {};
    std::strcpy(brand, "Example CPU @ 3.00GHz");
    for (std::uint32_t i = 0; i < 3; ++i)
      g_leaves[0x80000002 + i] = {Word(brand + 16 * i), Word(brand + 16 * i + 4),
                                  Word(brand + 16 * i + 8), Word(brand + 16 * i + 12)};
    const ProcessorInfo info = ReadProcessorInfo(&FromTable);
    EXPECT_EQ(info.Vendor, c.vendor);
    EXPECT_EQ(info.Family, c.family);
    EXPECT_EQ(info.Model, c.model);
    EXPECT_EQ(info.Is64Bit, c.is64);
    EXPECT_EQ(info.Brand, c.brand);
    EXPECT_EQ(CpuArchitecture(info), c.architecture);
  }
}

TEST(ProcessorInfoTest, ThisMachineIsReadOnce) {
  const ProcessorInfo& a = ThisProcessor();
  EXPECT_EQ(&a, &ThisProcessor());
  EXPECT_EQ(a.Vendor.size(), 12u);
  EXPECT_TRUE(a.Is64Bit);  // the module is built for x86-64 only
}

}  // namespace
}  // namespace VirtualWareRaw

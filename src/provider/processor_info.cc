#include "provider/processor_info.h"

#include <cpuid.h>

#include <cstring>

namespace VirtualWareRaw {
namespace {

CpuidRegisters RealCpuid(std::uint32_t leaf) {
  CpuidRegisters r{};
  __cpuid(leaf, r.Eax, r.Ebx, r.Ecx, r.Edx);
  return r;
}

std::string RegistersText(std::initializer_list<std::uint32_t> words) {
  std::string text;
  for (std::uint32_t w : words) {
    char bytes[4];
    std::memcpy(bytes, &w, 4);
    text.append(bytes, 4);
  }
  return text;
}

}  // namespace

ProcessorInfo ReadProcessorInfo(CpuidFunction cpuid) {
  ProcessorInfo info;
  const CpuidRegisters leaf0 = cpuid(0);
  info.Vendor = RegistersText({leaf0.Ebx, leaf0.Edx, leaf0.Ecx});

  const CpuidRegisters leaf1 = cpuid(1);
  info.Family = (leaf1.Eax >> 8) & 0xF;
  info.Model = (leaf1.Eax >> 4) & 0xF;
  if (info.Family == 6 || info.Family == 15) info.Model += ((leaf1.Eax >> 16) & 0xF) << 4;
  if (info.Family == 15) info.Family = ((leaf1.Eax >> 20) & 0xFF) + 15;

  const std::uint32_t highest = cpuid(0x80000000).Eax;
  if (highest >= 0x80000001) info.Is64Bit = (cpuid(0x80000001).Edx >> 29) & 1;
  if (highest >= 0x80000004) {
    for (std::uint32_t leaf = 0x80000002; leaf <= 0x80000004; ++leaf) {
      const CpuidRegisters r = cpuid(leaf);
      info.Brand += RegistersText({r.Eax, r.Ebx, r.Ecx, r.Edx});
    }
    info.Brand.resize(std::strlen(info.Brand.c_str()));
  }
  return info;
}

const ProcessorInfo& ThisProcessor() {
  static const ProcessorInfo info = ReadProcessorInfo(&RealCpuid);
  return info;
}

std::string CpuArchitecture(const ProcessorInfo& info) {
  if (!info.Is64Bit) return "x86";
  if (info.Vendor == "GenuineIntel") return "Intel64";
  if (info.Vendor == "AuthenticAMD") return "AMD64";
  return "";
}

}  // namespace VirtualWareRaw

// The processor record behind the server's Cpu... properties, read from
// CPUID. Module-internal.
#pragma once

#include <cstdint>
#include <string>

namespace VirtualWareRaw {

struct CpuidRegisters {
  std::uint32_t Eax, Ebx, Ecx, Edx;
};

// Runs CPUID for a leaf; tests pass a table instead of the instruction.
using CpuidFunction = CpuidRegisters (*)(std::uint32_t leaf);

struct ProcessorInfo {
  std::string Vendor;  // 12 characters of leaf 0: EBX, EDX, ECX
  std::string Brand;   // leaves 0x80000002 to 0x80000004; empty when absent
  std::uint32_t Family = 0;
  std::uint32_t Model = 0;
  bool Is64Bit = false;  // bit 29 of EDX of leaf 0x80000001
};

ProcessorInfo ReadProcessorInfo(CpuidFunction cpuid);
// The record of this machine's processor, read once.
const ProcessorInfo& ThisProcessor();

// "Intel64", "AMD64", "x86", or empty for a 64-bit processor of another vendor.
std::string CpuArchitecture(const ProcessorInfo& info);

}  // namespace VirtualWareRaw

// Small interfaces, objects and helpers for the object-framework tests.
#pragma once

#include <atomic>
#include <string>

#include <unicode/unistr.h>

#include "processor/interface_impl.h"

namespace Processor::testing {

struct IAlpha : virtual Interface {
  static constexpr std::uint32_t InterfaceId = 0x0A11A;
  virtual int Alpha() = 0;
};
struct IBeta : virtual Interface {
  static constexpr std::uint32_t InterfaceId = 0x0BE7A;
  virtual int Beta() = 0;
};
struct IGamma : virtual Interface {
  static constexpr std::uint32_t InterfaceId = 0x6A77A;
  virtual int Gamma() = 0;
};

// Counts its destructions so tests can see exactly when an object dies.
class Triple final : public IAlpha, public IBeta, public IGamma {
 public:
  explicit Triple(std::atomic<int>* destroyed = nullptr) : destroyed_(destroyed) {}
  ~Triple() override {
    if (destroyed_) ++*destroyed_;
  }
  int Alpha() override { return 1; }
  int Beta() override { return 2; }
  int Gamma() override { return 3; }
  void GetInterface(InterfaceRef& out, std::uint32_t id) override {
    FindInterface<IAlpha, IBeta, IGamma>(this, out, id);
  }
  MetaClass* GetMetaClass() override { return InterfaceMetaClass<IAlpha>::Instance(); }

 private:
  std::atomic<int>* destroyed_;
};

// A framework string as UTF-8, for comparisons and failure messages.
inline std::string Utf8(const icu::UnicodeString& s) {
  std::string out;
  s.toUTF8String(out);
  return out;
}

}  // namespace Processor::testing

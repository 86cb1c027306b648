// Trace sinks. Common::TraceLogic is what receives trace lines; a sink is
// registered with RegisterTraceLogic (common/trace.h) during set-up and
// must be thread-safe, since lines arrive on the host's threads.
// CompositeTraceLogic is the process's set of registered sinks; only the
// trace switch makes one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>

#include "common/non_copyable.h"
#include "vellumrig/error.h"

namespace Common {

class TraceLogic : public NonCopyable {
 public:
  virtual ~TraceLogic() = default;

  // `text` is zero-terminated.
  virtual void Trace(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
                     const char16_t* text) = 0;
  virtual void Trace(int level, std::uint32_t module, std::uint32_t code, const char16_t* text) {
    Trace(0, level, module, code, text);
  }
  virtual void TraceData(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
                         const char16_t* text, const void* data, std::size_t size) = 0;
  virtual void TraceData(int level, std::uint32_t module, std::uint32_t code, const char16_t* text,
                         const void* data, std::size_t size) {
    TraceData(0, level, module, code, text, data, size);
  }
  virtual void TraceError(std::uint32_t tag, int level, const Error& error) = 0;
  virtual void TraceError(int level, const Error& error) { TraceError(0, level, error); }
  // True for a sink that wants every line, whatever the trace level.
  virtual bool IgnoresLevel() const { return false; }
};

// Plain sinks get the lines that pass the level (or all, if they ignore
// it); tagged sinks get every line, under their own tag.
class CompositeTraceLogic final : public TraceLogic {
 public:
  void Add(TraceLogic* sink) { plain_.insert(sink); }
  void AddTagged(TraceLogic* sink, std::uint32_t tag) { tagged_.insert({sink, tag}); }
  void Remove(TraceLogic* sink);
  bool Empty() const { return plain_.empty() && tagged_.empty(); }

  void Trace(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
             const char16_t* text) override;
  void TraceData(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
                 const char16_t* text, const void* data, std::size_t size) override;
  void TraceError(std::uint32_t tag, int level, const Error& error) override;

 private:
  template <class Call>
  void Dispatch(int level, const Call& call);

  std::set<TraceLogic*> plain_;
  std::set<std::pair<TraceLogic*, std::uint32_t>> tagged_;
};

}  // namespace Common

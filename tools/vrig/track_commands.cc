// vrig track: start tracking, take change IDs, write through a tracked
// folder, and ask what changed. Each call opens the tracker's database
// afresh, as separate backup runs would.
#include "track_commands.h"

#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <stdexcept>
#include <cstdio>

#include "cli.h"
#include "common/message_error.h"
#include "common/site.h"
#include "vellumrig/file_tracker.h"
#include "vhdx_access.h"

namespace vrig {
namespace {

int Write(Host::TrackingHost& tracker, const std::string& path, std::uint64_t offset) {
  const std::u16string whole = Absolute(path);
  const std::size_t cut = whole.rfind(u'/');
  auto folder = tracker.OpenFolder(whole.substr(0, cut + 1));
  if (!folder) throw std::runtime_error("the current folder cannot be found");
  auto opened = folder->OpenFile(whole.substr(cut + 1), kOpenReadWrite);
  Check(folder->TakeError());
  auto* file = dynamic_cast<rio_file*>(opened.get());
  if (!file) throw std::runtime_error("not a file: " + path);
  file->Seek(static_cast<std::int64_t>(offset));
  char buffer[65536];
  for (ssize_t n; (n = ::read(STDIN_FILENO, buffer, sizeof buffer)) != 0;) {
    if (n < 0) {
      if (errno == EINTR) continue;
      throw std::runtime_error("cannot read standard input");
    }
    file->Write(buffer, static_cast<std::size_t>(n));
    if (file->Failed()) break;
  }
  file->Flush();
  Check(file->TakeError());
  return 0;
}

int Changes(Host::TrackingHost& tracker, const std::string& path, const std::string& id) {
  const std::u16string name = Absolute(path);
  bool tracked = false;
  Check(tracker.IsTracked(name, tracked));
  // As the module does: an untracked file is an error, never "no changes".
  if (!tracked)
    throw Failure{Common::MessageError(VR_SITE, {0x3C003F, Common::Msg::EngineFileNotTracked},
                                       {name})};
  std::unique_ptr<ChangedFile> changed;
  Check(tracker.GetChangedFile(id, name, changed));
  bool full = !changed;
  if (changed) Check(changed->IsFull(full));
  if (full) {
    std::puts("full");
    return 0;
  }
  std::uint32_t count = 0;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> regions;
  Check(changed->GetRegionCount(count));
  if (count) Check(changed->GetRegions(0, count, regions));
  for (const auto& [start, end] : regions)
    std::printf("%llu %llu\n", static_cast<unsigned long long>(start),
                static_cast<unsigned long long>(end));
  return 0;
}

}  // namespace

std::unique_ptr<Host::TrackingHost> OpenTracker(const std::string& database) {
  Common::Error error;
  auto tracker = Host::OpenTracker(Absolute(database), error);
  Check(error);
  return tracker;
}

int TrackCommand(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"track needs a command"};
  const std::string sub = args[0];
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  static const struct {
    const char* name;
    std::size_t count;
    const char* usage;
  } kForms[] = {{"start", 2, "vrig track start <db> <folder|file>"},
                {"id", 1, "vrig track id <db>"},
                {"write", 3, "vrig track write <db> <file> <offset>"},
                {"changes", 3, "vrig track changes <db> <file> <id>"}};
  const auto form = std::find_if(std::begin(kForms), std::end(kForms), [&](const auto& f) { return sub == f.name; });
  if (form == std::end(kForms)) throw UsageError{"unknown track command '" + sub + "'"};
  NeedArgs(rest, form->count, form->usage);
  const std::size_t n = args.size();
  if (sub == "start" && n == 3) {
    Check(OpenTracker(args[1])->Track(Absolute(args[2])));
    return 0;
  }
  if (sub == "id" && n == 2) {
    std::string id;
    Check(OpenTracker(args[1])->GetCurrentChangeID(id));
    std::puts(id.c_str());
    return 0;
  }
  if (sub == "write" && n == 4) return Write(*OpenTracker(args[1]), args[2], ParseNumber(args[3], "the offset"));
  if (sub == "changes" && n == 4) return Changes(*OpenTracker(args[1]), args[2], args[3]);
  return 0;
}

}  // namespace vrig

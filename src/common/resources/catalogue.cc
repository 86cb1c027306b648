#include "common/resources/catalogue.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <vector>

#include "common/message_table.h"
#include "common/resources/resource_module.h"

namespace Common {
namespace {

using Resources::ResourceApi;

std::atomic<bool> g_setUp{false};
thread_local bool t_preparing = false;

// Every catalogue that was ever active stays, because error records and
// callers may hold pointers into it.
void Keep(std::unique_ptr<std::uint8_t[]> catalogue) {
  static auto* lock = new std::mutex;
  static auto* kept = new std::vector<std::unique_ptr<std::uint8_t[]>>;
  std::lock_guard<std::mutex> guard(*lock);
  kept->push_back(std::move(catalogue));
}

void Reload() {
  std::size_t size = 0;
  auto catalogue = LoadResourceFile(u"vellumrig.msg", size);
  if (catalogue && size <= 0xFFFFFFFFu &&
      IsValidMessageTable(catalogue.get(), static_cast<std::uint32_t>(size))) {
    const std::uint8_t* table = catalogue.get();
    Keep(std::move(catalogue));
    SetActiveMessageTable(table);
  } else {
    // A missing catalogue, or one of another version, is never used.
    SetActiveMessageTable(kEnglishMessageTable);
  }
  g_setUp.store(true, std::memory_order_release);
}

}  // namespace

void PrepareMessageTable() {
  // Loading a catalogue must not ask for messages itself.
  if (t_preparing) return;
  t_preparing = true;
  const int saved = errno;
  if (!g_setUp.load(std::memory_order_acquire)) {
    static std::mutex lock;
    std::lock_guard<std::mutex> guard(lock);
    if (!g_setUp.load(std::memory_order_acquire)) ResourceApi::SubscribeLanguageEvents(&Reload);
  } else {
    ResourceApi::CheckLanguage();
  }
  errno = saved;
  t_preparing = false;
}

void ShutdownMessageCatalogue() {
  ResourceApi::UnsubscribeLanguageEvents(&Reload);
  CloseResourceModule();
}

}  // namespace Common

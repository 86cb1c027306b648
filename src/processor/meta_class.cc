// The process-wide list of meta-classes.
#include "processor/meta_class.h"

namespace Processor {
namespace {

MetaClass* g_metaClasses = nullptr;

}  // namespace

Common::Mutex& MetaClassLock() {
  static auto* lock = new Common::Mutex;  // never destroyed: used at process end
  return *lock;
}

void LinkMetaClass(MetaClass* meta) {
  meta->Next = g_metaClasses;
  g_metaClasses = meta;
}

void DestroyMetaClasses() {
  MetaClass* list;
  {
    Common::MutexGuard guard(MetaClassLock());
    list = g_metaClasses;
    g_metaClasses = nullptr;
  }
  while (list) {
    MetaClass* next = list->Next;
    delete list;
    list = next;
  }
}

}  // namespace Processor

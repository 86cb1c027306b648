// Machines that exist only in memory, through the loaded module: a restore
// tool describes the target, has it checked, and later links it to the
// machine it made.
#include <memory>

#include "loaded_module.h"

namespace ModuleTest {
namespace {

using VirtualWareRaw::ObjectManager;

// A folder on which every call fails and is counted: a description that
// reaches the file system shows in the count.
class TrapFolder final : public rio_dir {
 public:
  explicit TrapFolder(std::shared_ptr<int> calls) : calls_(std::move(calls)) {}

  // The server asks for "." once, when it takes the folder as its root.
  std::unique_ptr<rio_dir> OpenFolder(const std::u16string& name) override {
    if (name == u".") return std::make_unique<TrapFolder>(calls_);
    return Trap<rio_dir>();
  }
  std::unique_ptr<rio_dir> OpenParentFolder(const char16_t*&) override { return Trap<rio_dir>(); }
  std::unique_ptr<i_file> OpenFile(const std::u16string&, std::uint32_t) override { return Trap<i_file>(); }
  std::unique_ptr<rio_dir> OpenEntry(const dir_enumerator&) override { return Trap<rio_dir>(); }
  std::unique_ptr<rio_dir> OpenSpecialFolder(std::uint32_t) override { return Trap<rio_dir>(); }
  AutoRef<dir_item> Find(const std::u16string&) override { return Trap<dir_item, AutoRef<dir_item>>(); }
  std::unique_ptr<dir_enumerator> Enumerate() override { return Trap<dir_enumerator>(); }
  AutoRef<dir_item> Self() override { return Trap<dir_item, AutoRef<dir_item>>(); }
  std::u16string FullPath() override { return Trap<char16_t, std::u16string>(); }
  int IsSameFolder(rio_dir&) override { return ++*calls_, 0; }
  bool IsSeparator(char16_t c) const override { return ++*calls_, c == '/'; }
  char16_t Separator() const override { return ++*calls_, '/'; }
  std::unique_ptr<rio_file> CreateFile(const std::u16string&, std::uint32_t, std::uint32_t) override {
    return Trap<rio_file>();
  }
  void DeleteFile(const std::u16string&) override { Trap<int>(); }
  void Rename(const std::u16string&, const std::u16string&) override { Trap<int>(); }
  void CreateFolder(const std::u16string&) override { Trap<int>(); }
  void DeleteFolder(const std::u16string&) override { Trap<int>(); }

 private:
  template <class T, class R = std::unique_ptr<T>>
  R Trap() {
    ++*calls_;
    IOCTL(nullptr);  // leaves "The operation is not supported." pending
    return R();
  }
  std::shared_ptr<int> calls_;
};

class DummyMachineTest : public ServerOnRoot {
 protected:
  AutoRef<ObjectManager> Objects() { return Processor::QueryInterface<ObjectManager>(server); }

  std::u16string NewDummy() {
    std::u16string id;
    const Common::Error error = Objects()->CreateObject(u"VirtualMachine", id);
    EXPECT_TRUE(error.IsEmpty()) << Text(error);
    return id;
  }
  AutoRef<SafeVM> Registered(const std::u16string& id) { return Open(Common::ToUtf8(id)); }
};

// Describing a machine and using its disk never reaches the folder; only
// the check of name and storage does, and its failure comes back.
TEST_F(DummyMachineTest, ADescriptionTouchesNoFile) {
  auto calls = std::make_shared<int>(0);
  TrapFolder trap(calls);
  Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(server)->SetRootDir(&trap);
  *calls = 0;

  const std::u16string id = NewDummy();
  AutoRef<VirtualWareRaw::PropertySet> object;
  ASSERT_TRUE(Objects()->GetObject(id, object).IsEmpty());
  EXPECT_TRUE(object->SetProperty(u"Memory", u"2048").IsEmpty());
  EXPECT_TRUE(object->SetProperty(u"Name", u"Restored").IsEmpty()) << "alone, a name is not checked";
  AutoRef<SafeVM> vm = Registered(id);
  AutoRef<SafeHardDisk> disk;
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"system.vhdx"), 0, 0, 0, 40ull << 30, 512, disk).IsEmpty());
  std::string sector(512, 'b');
  ASSERT_TRUE(DiskOf(disk)->Access(Fdisk::kAccessWrite, 0, 1, sector.data()).IsEmpty());
  EXPECT_TRUE(server->RemoveVM(NewDummy()).IsEmpty());
  EXPECT_EQ(*calls, 0);

  const Common::Error refused = object->SetProperty(u"Storage", u"/srv/vms");
  EXPECT_EQ(refused.Code(), 0x530016u) << Text(refused);
  EXPECT_GT(*calls, 0);
  std::u16string storage;
  EXPECT_EQ(object->GetProperty(u"Storage", storage).Code(), 0x53002Cu) << "a refused value is not kept";
}

TEST_F(DummyMachineTest, DisksAreCheckedAndReadZerosButTheBootSector) {
  const std::u16string id = NewDummy();
  EXPECT_NE(NewDummy(), id);
  AutoRef<SafeVM> vm = Registered(id);
  EXPECT_EQ(Get(vm, u"ID"), id);

  AutoRef<SafeHardDisk> disk;
  struct Refusal {
    std::uint64_t Size;
    std::uint32_t SectorSize, Code;
  };
  for (const Refusal& r : {Refusal{1 << 20, 0, 0x530108}, Refusal{1 << 20, 520, 0x3C003A},
                           Refusal{(64ull << 40) + 512, 512, 0x3C000B}}) {
    const Common::Error error = vm->AddHardDisk(Processor::String(u"bad.vhdx"), 1, 0, 0, r.Size, r.SectorSize, disk);
    EXPECT_EQ(error.Code(), r.Code) << Text(error);
  }
  // The size is rounded down to whole sectors; SCSI has 255 heads of 63.
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"data.vhdx"), 1, 0, 2, (8u << 20) + 300, 512, disk).IsEmpty());
  VirtualMachineDiskEx* ex = DiskOf(disk);
  ASSERT_TRUE(ex);
  EXPECT_EQ(ex->GetLastSector(), 16383u);
  EXPECT_EQ(ex->GetGeometry(), (Fdisk::Geometry{63, 254, 1}));
  EXPECT_EQ(ex->GetDiskType(), 1u);

  std::string two(1024, 'm'), back(1024, 'x');
  two[600] = 'n';
  ASSERT_TRUE(ex->Access(Fdisk::kAccessWrite, 0, 2, two.data()).IsEmpty());
  // A second disk object of the same disk sees the same boot sector.
  AutoRef<VirtualWareRaw::SafeHardDiskCollection> disks;
  ASSERT_TRUE(vm->GetHardDisks(disks).IsEmpty());
  AutoRef<SafeHardDisk> again;
  ASSERT_TRUE(disks->GetItem(0, again).IsEmpty());
  ASSERT_TRUE(DiskOf(again)->Access(Fdisk::kAccessRead, 0, 2, back.data()).IsEmpty());
  EXPECT_EQ(back, std::string(512, 'm') + std::string(512, '\0')) << "only the first sector is kept";
  EXPECT_EQ(disks->GetItem(1, again).Code(), 0x530023u);

  const Common::Error elsewhere = ex->Access(Fdisk::kAccessWrite, 1, 1, two.data());
  EXPECT_EQ(elsewhere.GetText(), u"Failed to get access to hard disk 'data.vhdx_dummy'.");
  EXPECT_TRUE(ex->Access(Fdisk::kAccessRead, 16382, 1, back.data()).Code() != 0) << "nor the last sector";
  EXPECT_TRUE(ex->Access(Fdisk::kAccessRead, 16381, 1, back.data()).IsEmpty());

  EXPECT_EQ(vm->RemoveHardDisk(1, 0, 3, true).Code(), 0x530064u);
  EXPECT_TRUE(vm->RemoveHardDisk(1, 0, 2, true).IsEmpty());
  EXPECT_EQ(vm->AddExistingHardDisk(Processor::String(u"x.vhdx"), 0, 0, 0, 0, disk).Code(), 0x530062u);
}

TEST_F(DummyMachineTest, NameAndStorageAreCheckedAsAPair) {
  Create(u"Taken");
  AutoRef<VirtualWareRaw::PropertySet> object;
  ASSERT_TRUE(Objects()->GetObject(NewDummy(), object).IsEmpty());
  EXPECT_EQ(object->SetProperty(u"ID", u"x").Code(), 0x53002Cu);
  ASSERT_TRUE(object->SetProperty(u"Name", u"Taken").IsEmpty());
  const Common::Error taken = object->SetProperty(u"Storage", Storage());
  EXPECT_EQ(taken.Code(), 0x530025u) << Text(taken);
  ASSERT_TRUE(object->SetProperty(u"Name", u"Free").IsEmpty());
  ASSERT_TRUE(object->SetProperty(u"Storage", Storage()).IsEmpty());
  std::vector<std::u16string> names;
  ASSERT_TRUE(object->GetPropertyNames(names).IsEmpty());
  EXPECT_EQ(names, (std::vector<std::u16string>{u"ID", u"Login", u"Name", u"Password", u"Storage"}));
}

TEST_F(DummyMachineTest, ALinkLeadsFromTheDummyToTheRealMachine) {
  const std::u16string alias = NewDummy();
  const std::u16string vmc = Common::FromUtf8(VmcPath("Web"));
  Create(u"Web");
  std::u16string unused = u"kept";
  ASSERT_TRUE(Objects()->CreateObject(u"<link><alias>" + alias + u"</alias><id>" + vmc + u"</id></link>", unused)
                  .IsEmpty());
  EXPECT_EQ(unused, u"kept");
  AutoRef<VirtualWareRaw::PropertySet> object;
  EXPECT_EQ(Objects()->GetObject(alias, object).Code(), 0x53007Au) << "the dummy itself is gone";
  EXPECT_EQ(Get(Registered(alias), u"ID"), vmc);

  for (const char16_t* text : {u"VirtualMachines", u"<other/>", u"<link><alias>a</alias></link>"})
    EXPECT_EQ(Objects()->CreateObject(text, unused).Code(), 0x530079u) << Common::ToUtf8(text);
  // Two links that name each other end in a refusal, not in endless calls.
  ASSERT_TRUE(Objects()->CreateObject(u"<link><alias>a</alias><id>b</id></link>", unused).IsEmpty());
  ASSERT_TRUE(Objects()->CreateObject(u"<link><alias>b</alias><id>a</id></link>", unused).IsEmpty());
  AutoRef<SafeVM> vm;
  EXPECT_EQ(server->GetRegisteredVM(u"a", vm).Code(), 0x530016u);
  EXPECT_EQ(server->RemoveVM(u"a").Code(), 0x53002Eu) << "a link is no dummy to remove";
}

}  // namespace
}  // namespace ModuleTest

// Machines on disk through the loaded module, as a host works with them:
// the machine's own properties and file, and the server's operations on it.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <iterator>

#include "loaded_module.h"

namespace ModuleTest {
namespace {

// The template as the writer lays it down: byte order mark, the 41-byte
// declaration, no indentation, a line break where a space stood after a
// closing tag, and a final CR LF.
constexpr char kNewMachineFile[] =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
    "<preferences><hardware><firmware><value type=\"string\">bios</value></firmware>\r\n"
    "<memory><ram_size type=\"integer\">128</ram_size></memory>\r\n"
    "<pci_bus/></hardware></preferences>\r\n";

using MachineTest = ServerOnRoot;

TEST_F(MachineTest, NewMachineIsTheTemplateRewritten) {
  AutoRef<SafeVM> vm = Create(u"Web");
  ASSERT_TRUE(vm);
  EXPECT_EQ(ReadBytes(VmcPath("Web")), kNewMachineFile);
  const std::u16string path = Common::FromUtf8(VmcPath("Web"));
  const std::vector<std::pair<std::u16string, std::u16string>> expected = {
      {u"ID", path},      {u"Name", u"Web"},         {u"FileName", path},        {u"Memory", u"128"},
      {u"CPUs", u"1"},    {u"GuestOS", u"Unknown"},  {u"PowerState", u"Unknown"}, {u"FirmwareType", u"0"}};
  std::vector<std::u16string> names;
  Properties(vm)->GetPropertyNames(names);
  ASSERT_EQ(names.size(), expected.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(names[i], expected[i].first);
    EXPECT_EQ(Get(vm, names[i].c_str()), expected[i].second) << Common::ToUtf8(names[i]);
  }
  // Creating it again writes the template over the file.
  Properties(vm)->SetProperty(u"Memory", u"1073741824");
  Access(vm)->Close();
  Create(u"Web");
  EXPECT_EQ(ReadBytes(VmcPath("Web")), kNewMachineFile);
}

TEST_F(MachineTest, PropertiesReachTheFileAtClose) {
  AutoRef<SafeVM> vm = Open(Common::ToUtf8(Get(Create(u"Db"), u"ID")));
  ASSERT_TRUE(Properties(vm)->SetProperty(u"Memory", u"1073741824").IsEmpty());
  ASSERT_TRUE(Properties(vm)->SetProperty(u"FirmwareType", u"1").IsEmpty());
  EXPECT_EQ(ReadBytes(VmcPath("Db")), kNewMachineFile);  // nothing written before the flush
  ASSERT_TRUE(Access(vm)->Close().IsEmpty());
  const std::string file = ReadBytes(VmcPath("Db"));
  EXPECT_NE(file.find("<ram_size type=\"integer\">1024</ram_size>"), std::string::npos) << file;
  EXPECT_NE(file.find("<value type=\"string\">efi</value>"), std::string::npos) << file;
  AutoRef<SafeVM> again = Open(VmcPath("Db"));
  EXPECT_EQ(Get(again, u"FirmwareType"), u"1");
  // Below one megabyte the stored value is 0.
  Properties(again)->SetProperty(u"Memory", u"1000");
  EXPECT_EQ(Get(again, u"Memory"), u"0");
  // More processors are wished, logged, and not taken.
  EXPECT_TRUE(Properties(again)->SetProperty(u"CPUs", u"2").IsEmpty());
  EXPECT_EQ(Get(again, u"CPUs"), u"1");
}

TEST_F(MachineTest, NamesThatLeaveTheStorageAreRefused) {
  const std::string sub = dir.Join("storage");
  ASSERT_EQ(::mkdir(sub.c_str(), 0777), 0);
  for (const char16_t* name : {u"..", u"", u"."}) {
    AutoRef<SafeVM> vm;
    const Common::Error e = server->CreateVM(Common::FromUtf8(sub), name, 0, vm);
    EXPECT_EQ(e.Code(), 0x530013u) << Text(e);
    ExpectError(e.Reason(), 0x5301DF,
                u"The name '" + std::u16string(name) + u"' cannot be used for a virtual machine.");
    EXPECT_FALSE(vm);
  }
  // Nothing was made, inside the storage or above it.
  EXPECT_TRUE(std::filesystem::is_empty(sub));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST_F(MachineTest, RenameByCaseChangesNothingAndByNameMovesFolderAndFile) {
  AutoRef<SafeVM> vm = Create(u"Box");
  ASSERT_TRUE(Properties(vm)->SetProperty(u"Name", u"BOX").IsEmpty());
  EXPECT_TRUE(Exists(VmcPath("Box")));
  EXPECT_FALSE(Exists(dir.Join("BOX")));

  ASSERT_TRUE(Properties(vm)->SetProperty(u"Name", u"Crate").IsEmpty());
  EXPECT_FALSE(Exists(dir.Join("Box")));
  EXPECT_TRUE(Exists(VmcPath("Crate")));
  EXPECT_EQ(Get(vm, u"Memory"), u"128");  // read again from the renamed file

  // A folder of the new name in the way: the rename fails and says why.
  Create(u"Taken");
  ExpectError(Properties(vm)->SetProperty(u"Name", u"Taken"), 0x530015,
              u"Failed to rename virtual machine 'Crate' to 'Taken'.", 0x40013);
  EXPECT_TRUE(Exists(VmcPath("Crate")));

  // The file cannot follow the folder (its new name is taken inside): the
  // folder gets its old name back.
  ASSERT_EQ(::mkdir(dir.Join("Crate/Bin.vmc").c_str(), 0777), 0);
  EXPECT_EQ(Properties(vm)->SetProperty(u"Name", u"Bin").Reason().Code(), 0x40013u);
  EXPECT_TRUE(Exists(VmcPath("Crate")));
  EXPECT_FALSE(Exists(dir.Join("Bin")));

  // A machine whose folder has another name is not renamed: the folder of
  // its name is a sibling's.
  std::filesystem::create_directory(dir.Join("Other"));
  std::filesystem::rename(VmcPath("Crate"), dir.Join("Other/Crate.vmc"));
  AutoRef<SafeVM> moved = Open(dir.Join("Other/Crate.vmc"));
  const Common::Error refused = Properties(moved)->SetProperty(u"Name", u"Moved");
  EXPECT_EQ(refused.Reason().Code(), 0x5301E4u) << Text(refused);
  EXPECT_TRUE(Exists(dir.Join("Crate")) && Exists(dir.Join("Other/Crate.vmc")));
  EXPECT_FALSE(Exists(dir.Join("Moved")));
}

TEST_F(MachineTest, ReadOnlyMachineRefusesToWriteItsChanges) {
  Create(u"Ro");
  AutoRef<SafeVM> vm = Open(VmcPath("Ro"));
  Access(vm)->Open(0);
  ASSERT_TRUE(Properties(vm)->SetProperty(u"Memory", u"2147483648").IsEmpty());
  ExpectError(Access(vm)->Close(), 0x53000C, u"Cannot modify read-only virtual machine 'Ro.vmc'.");
  EXPECT_EQ(ReadBytes(VmcPath("Ro")), kNewMachineFile);
  Access(vm)->Open(VirtualWareRaw::SafeVMAccess::WriteAccess);  // the same change goes through
  EXPECT_TRUE(Access(vm)->Close().IsEmpty());
  EXPECT_NE(ReadBytes(VmcPath("Ro")).find(">2048<"), std::string::npos);
}

TEST_F(MachineTest, BrokenFilesOpenAndFailAtTheFirstKey) {
  Create(u"Bad");
  WriteBytes(VmcPath("Bad"), "<preferences><hardware></preferences>");
  AutoRef<SafeVM> vm = Open(VmcPath("Bad"));
  ASSERT_TRUE(vm);
  EXPECT_EQ(Get(vm, u"Name"), u"Bad");  // no key needed
  std::u16string value;
  const Common::Error e = Properties(vm)->GetProperty(u"Memory", value);
  ExpectError(e, 0x53000C, u"Failed to parse virtual machine configuration file.", 0x3B0001);
  EXPECT_EQ(e.Reason().GetNumber("line"), 1u);

  // Keys that are missing have their own errors.
  WriteBytes(VmcPath("Bad"), "<preferences><hardware/></preferences>");
  AutoRef<SafeVM> bare = Open(VmcPath("Bad"));
  ExpectError(Properties(bare)->GetProperty(u"Memory", value), 0x530010, u"Failed to obtain the memory size.");
  ExpectError(Properties(bare)->GetProperty(u"FirmwareType", value), 0x5301A6,
              u"Failed to obtain the firmware type.");
}

TEST_F(MachineTest, FileGoneAfterOpeningIsReportedWithItsPlace) {
  Create(u"Gone");
  AutoRef<SafeVM> vm = Open(VmcPath("Gone"));
  std::filesystem::remove(VmcPath("Gone"));
  std::u16string value;
  const Common::Error e = Properties(vm)->GetProperty(u"Memory", value);
  const std::u16string folder = dir.Wide("Gone") + u"/";
  ExpectError(e, 0x5301E3, u"No virtual machine found ('" + folder + u"', 'Gone.vmc') or it cannot be accessed.",
              0x40011);
  EXPECT_EQ(std::u16string(e.GetWideString("FullPath")), folder);
  EXPECT_EQ(std::u16string(e.GetWideString("FileName")), u"Gone.vmc");
}

TEST_F(MachineTest, ConfigurationThatCannotBeWrittenFailsTheFlush) {
  AutoRef<SafeVM> vm = Create(u"Blocked");
  Get(vm, u"Memory");
  std::filesystem::remove(VmcPath("Blocked"));
  ASSERT_EQ(::mkdir(VmcPath("Blocked").c_str(), 0777), 0);  // a folder where the file goes
  Properties(vm)->SetProperty(u"Memory", u"1073741824");
  const Common::Error e = Access(vm)->Close();
  ExpectError(e, 0x53000C, u"Failed to create configuration file 'Blocked.vmc'.");
  EXPECT_FALSE(e.Reason().IsEmpty());

  // A full disk half way through the rewrite leaves the old file whole, and
  // nothing beside it.
  AutoRef<SafeVM> full = Create(u"Full");
  Properties(full)->SetProperty(u"Memory", u"1073741824");
  HostTest::InChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {64, 64};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
    const Common::Error error = Access(full)->Close();
    if (error.Code() != 0x53000Cu || error.Reason().Code() != 0x40004u) return 11;
    return ReadBytes(VmcPath("Full")) == kNewMachineFile ? 0 : 12;
  });
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Join("Full")), {}), 1);
}

TEST_F(MachineTest, PropertyFailures) {
  AutoRef<SafeVM> vm = Create(u"Props");
  ExpectError(Properties(vm)->SetProperty(u"Memory", u"lots"), 0x53006F,
              u"Failed to set property 'Memory' to 'lots'.", 1);
  // Hexadecimal forms are numbers too.
  for (auto [given, stored] : {std::pair{u"0x4A000000", u"1184"}, std::pair{u" 80000000h ", u"2048"}}) {
    EXPECT_TRUE(Properties(vm)->SetProperty(u"Memory", given).IsEmpty());
    EXPECT_EQ(Get(vm, u"Memory"), stored);
  }
  for (const char16_t* name : {u"ID", u"FileName", u"GuestOS", u"Colour"}) {
    ExpectError(Properties(vm)->SetProperty(name, u"x"), 0x53002C,
                u"Property '" + std::u16string(name) + u"' is not supported.");
  }
  std::vector<std::u16string> list;
  EXPECT_EQ(Properties(vm)->GetProperty(u"Memory", list).Code(), 0x53002Cu);
  EXPECT_EQ(vm->ResizeHardDisk(0, 0, 0, 1).Code(), 0x530062u);
  // Its own three interfaces are used by every test here; not the server's.
  Processor::InterfaceRef ref;
  vm->GetInterface(ref, VirtualWareRaw::SafeVirtualServer::InterfaceId);
  EXPECT_EQ(ref.Meta, nullptr);
}

TEST_F(MachineTest, RemovingTheLastMachineRemovesItsFolder) {
  Create(u"Solo");
  ASSERT_TRUE(server->RemoveVM(Common::FromUtf8(VmcPath("Solo"))).IsEmpty());
  EXPECT_FALSE(Exists(dir.Join("Solo")));

  Create(u"Shared");
  WriteBytes(dir.Join("Shared/notes.txt"), "keep me");
  ASSERT_TRUE(server->RemoveVM(Common::FromUtf8(VmcPath("Shared"))).IsEmpty());
  EXPECT_FALSE(Exists(VmcPath("Shared")));
  EXPECT_EQ(ReadBytes(dir.Join("Shared/notes.txt")), "keep me");

  ExpectError(server->RemoveVM(Common::FromUtf8(VmcPath("Never"))), 0x53002E, u"Failed to delete the virtual machine.",
              0x40011);

  // What is no machine file is not deleted, and neither is its folder.
  std::filesystem::create_directory(dir.Join("Notes"));
  const std::pair<const char*, const char*> others[] = {
      {"Notes/notes.txt", "plain words"}, {"Notes/Broken.vmc", "<preferences><hardware>"},
      {"Notes/other.xml", "<notes><hardware/></notes>"}};
  for (const auto& [name, content] : others) {
    WriteBytes(dir.Join(name), content);
    const Common::Error e = server->RemoveVM(dir.Wide(name));
    EXPECT_EQ(e.Code(), 0x53002Eu) << name;
    EXPECT_EQ(e.Reason().Code(), 0x53000Cu) << Text(e);
    EXPECT_EQ(ReadBytes(dir.Join(name)), content);
  }
}

TEST_F(MachineTest, FindingByStorageAndNameGivesAtMostOneMachine) {
  auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(server);
  AutoRef<VirtualWareRaw::SafeVMCollection> found;
  ASSERT_TRUE(workstation->GetRegisteredVMs(Storage(), {}, u"x:y", found).IsEmpty());
  std::uint32_t count = 9;
  found->GetCount(count);
  EXPECT_EQ(count, 0u);
  AutoRef<SafeVM> vm;
  ExpectError(found->GetItem(0, vm), 0x530063, u"Cannot obtain virtual machines by the given index.");

  Create(u"x:y");
  ASSERT_TRUE(workstation->GetRegisteredVMs(Storage(), {}, u"x:y", found).IsEmpty());
  found->GetCount(count);
  ASSERT_EQ(count, 1u);
  ASSERT_TRUE(found->GetItem(0, vm).IsEmpty());
  EXPECT_EQ(Get(vm, u"Name"), u"x_y");
  // Only the low 32 bits of an index count, and one past the end fails.
  EXPECT_EQ(found->GetItem(1, vm).Code(), 0x530063u);
}

TEST_F(MachineTest, OpeningAMissingMachineSaysWhich) {
  AutoRef<SafeVM> vm;
  const std::u16string id = Common::FromUtf8(VmcPath("Ghost"));
  const Common::Error e = server->GetRegisteredVM(id, vm);
  ExpectError(e, 0x530016, u"Failed to open virtual machine '" + id + u"'.", 0x5301DE);
  EXPECT_EQ(std::u16string(e.Reason().GetWideString("fileName")), id);
  EXPECT_FALSE(vm);
}

TEST_F(MachineTest, EmptyStorageMeansTheDefaultMachinesFolder) {
  setenv("VELLUMRIG_MACHINES", dir.Join("default").c_str(), 1);
  std::vector<std::u16string> folders;
  ASSERT_TRUE(server->GetVMDefaultFolders(folders).IsEmpty());
  ASSERT_EQ(folders.size(), 1u);
  EXPECT_EQ(folders[0], dir.Wide("default") + u"/");
  AutoRef<SafeVM> vm;
  const Common::Error e = server->CreateVM(u"", u"Fallback", 0, vm);
  unsetenv("VELLUMRIG_MACHINES");
  ASSERT_TRUE(e.IsEmpty()) << Text(e);
  EXPECT_TRUE(Exists(dir.Join("default/Fallback/Fallback.vmc")));
  // A storage not there yet is made, with the folders above it.
  ASSERT_TRUE(server->CreateVM(dir.Wide("new/deeper"), u"Deep", 0, vm).IsEmpty());
  EXPECT_TRUE(Exists(dir.Join("new/deeper/Deep/Deep.vmc")));
}

TEST_F(MachineTest, WithoutARootEveryMachineOperationIsAnInternalError) {
  auto files = Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(server);
  files->SetRootDir(nullptr);
  AutoRef<SafeVM> vm;
  // The texts of this refusal are checked where it crosses the boundary (load_test).
  EXPECT_EQ(server->CreateVM(Storage(), u"box", 0, vm).Reason().Code(), 0x530040u);
  EXPECT_EQ(server->GetRegisteredVM(u"/x.vmc", vm).Reason().Code(), 0x530040u);
  EXPECT_EQ(server->RemoveVM(u"/x.vmc").Reason().Code(), 0x530040u);
  std::vector<std::u16string> folders;
  EXPECT_EQ(server->GetVMDefaultFolders(folders).Code(), 0x530040u);
  auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(server);
  AutoRef<VirtualWareRaw::SafeVMCollection> found;
  ExpectError(workstation->GetRegisteredVMs(Storage(), {}, u"box", found), 0x530004,
              u"Failed to obtain the list of registered virtual machines.", 0x530040);

  // A root set again makes them work; the server keeps its own folder.
  auto given = Host::OpenFolder(u"/");
  files->SetRootDir(given.get());
  given.reset();
  EXPECT_TRUE(server->CreateVM(Storage(), u"box", 0, vm).IsEmpty());
}

// Daemons load the module by a relative path and then change folder, and
// packagers strip it: neither may cost it the template inside it.
TEST(TemplateTest, StrippedModuleLoadedByRelativePathFindsItAfterAFolderChange) {
  HostTest::TempDir dir, elsewhere;
  ASSERT_EQ(::mkdir(dir.Join("lib").c_str(), 0755), 0);
  WriteBytes(dir.Join("lib/libvellumrig.so"), ReadBytes(VELLUMRIG_MODULE_PATH));
  ASSERT_EQ(std::system(("strip --strip-unneeded " + dir.Join("lib/libvellumrig.so")).c_str()), 0);
  const std::string home = std::filesystem::current_path();
  ASSERT_EQ(::chdir(dir.Path().c_str()), 0);
  void* handle = dlopen("./lib/libvellumrig.so", RTLD_NOW | RTLD_LOCAL);
  ASSERT_EQ(::chdir(elsewhere.Path().c_str()), 0);
  ASSERT_NE(handle, nullptr) << dlerror();
  auto* open = reinterpret_cast<SafeOpenVirtualServerFn*>(dlsym(handle, "SafeOpenVirtualServer"));
  Common::Error error;
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  open(error, 7, server);
  auto root = Host::OpenFolder(u"/");
  Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(server)->SetRootDir(root.get());
  AutoRef<SafeVM> vm;
  const Common::Error e = server->CreateVM(dir.Wide(), u"Daemon", 0, vm);
  EXPECT_TRUE(e.IsEmpty()) << Text(e);
  EXPECT_NE(ReadBytes(dir.Join("Daemon/Daemon.vmc")).find("<preferences>"), std::string::npos);
  vm.Reset();
  server.Reset();
  ASSERT_EQ(::chdir(home.c_str()), 0);
}

}  // namespace
}  // namespace ModuleTest

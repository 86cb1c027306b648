// The server's machine operations through the loaded module.
#include "loaded_module.h"

namespace ModuleTest {
namespace {

using HostTest::Exists;
using HostTest::ReadBytes;
using HostTest::WriteBytes;
using Processor::AutoRef;
using VirtualWareRaw::SafeVM;

using ServerMachinesTest = ServerOnRoot;

TEST_F(ServerMachinesTest, RemovingTheLastMachineRemovesItsFolder) {
  Create(u"Solo");
  ASSERT_TRUE(server->RemoveVM(Common::FromUtf8(VmcPath("Solo"))).IsEmpty());
  EXPECT_FALSE(Exists(dir.Join("Solo")));

  Create(u"Shared");
  WriteBytes(dir.Join("Shared/notes.txt"), "keep me");
  ASSERT_TRUE(server->RemoveVM(Common::FromUtf8(VmcPath("Shared"))).IsEmpty());
  EXPECT_FALSE(Exists(VmcPath("Shared")));
  EXPECT_EQ(ReadBytes(dir.Join("Shared/notes.txt")), "keep me");

  const Common::Error missing = server->RemoveVM(Common::FromUtf8(VmcPath("Never")));
  EXPECT_EQ(missing.Code(), 0x53002Eu) << Text(missing);
  EXPECT_EQ(missing.GetText(), u"Failed to delete the virtual machine.");
  EXPECT_EQ(missing.Reason().Code(), 0x40011u) << Text(missing);

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

TEST_F(ServerMachinesTest, FindingByStorageAndNameGivesAtMostOneMachine) {
  auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(server);
  AutoRef<VirtualWareRaw::SafeVMCollection> found;
  ASSERT_TRUE(workstation->GetRegisteredVMs(Storage(), {}, u"x:y", found).IsEmpty());
  std::uint32_t count = 9;
  found->GetCount(count);
  EXPECT_EQ(count, 0u);
  AutoRef<SafeVM> vm;
  const Common::Error none = found->GetItem(0, vm);
  EXPECT_EQ(none.Code(), 0x530063u);
  EXPECT_EQ(none.GetText(), u"Cannot obtain virtual machines by the given index.");

  Create(u"x:y");
  ASSERT_TRUE(workstation->GetRegisteredVMs(Storage(), {}, u"x:y", found).IsEmpty());
  found->GetCount(count);
  ASSERT_EQ(count, 1u);
  ASSERT_TRUE(found->GetItem(0, vm).IsEmpty());
  EXPECT_EQ(Get(vm, u"Name"), u"x_y");
  // Only the low 32 bits of an index count, and one past the end fails.
  EXPECT_EQ(found->GetItem(1, vm).Code(), 0x530063u);
}

TEST_F(ServerMachinesTest, OpeningAMissingMachineSaysWhich) {
  AutoRef<SafeVM> vm;
  const std::u16string id = Common::FromUtf8(VmcPath("Ghost"));
  const Common::Error e = server->GetRegisteredVM(id, vm);
  EXPECT_EQ(e.Code(), 0x530016u);
  EXPECT_EQ(e.GetText(), u"Failed to open virtual machine '" + id + u"'.");
  EXPECT_EQ(e.Reason().Code(), 0x5301DEu);
  EXPECT_EQ(std::u16string(e.Reason().GetWideString("fileName")), id);
  EXPECT_FALSE(vm);
}

TEST_F(ServerMachinesTest, EmptyStorageMeansTheDefaultMachinesFolder) {
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
}

TEST_F(ServerMachinesTest, WithoutARootEveryMachineOperationIsAnInternalError) {
  auto files = Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(server);
  files->SetRootDir(nullptr);
  AutoRef<SafeVM> vm;
  const Common::Error create = server->CreateVM(Storage(), u"box", 0, vm);
  EXPECT_EQ(create.Code(), 0x530013u);
  EXPECT_EQ(create.GetText(), u"Failed to create virtual machine 'box'.");
  EXPECT_EQ(create.Reason().Code(), 0x530040u);
  EXPECT_EQ(create.Reason().GetText(), u"An internal error.");
  EXPECT_EQ(server->GetRegisteredVM(u"/x.vmc", vm).Reason().Code(), 0x530040u);
  EXPECT_EQ(server->RemoveVM(u"/x.vmc").Reason().Code(), 0x530040u);
  std::vector<std::u16string> folders;
  EXPECT_EQ(server->GetVMDefaultFolders(folders).Code(), 0x530040u);
  auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(server);
  AutoRef<VirtualWareRaw::SafeVMCollection> found;
  const Common::Error list = workstation->GetRegisteredVMs(Storage(), {}, u"box", found);
  EXPECT_EQ(list.Code(), 0x530004u);
  EXPECT_EQ(list.GetText(), u"Failed to obtain the list of registered virtual machines.");
  EXPECT_EQ(list.Reason().Code(), 0x530040u);

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

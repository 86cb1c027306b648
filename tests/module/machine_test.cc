// Machines on disk through the loaded module, as a host works with them.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <iterator>

#include "loaded_module.h"

namespace ModuleTest {
namespace {

using HostTest::Exists;
using HostTest::ReadBytes;
using HostTest::WriteBytes;
using Processor::AutoRef;
using VirtualWareRaw::SafeVM;

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
    EXPECT_EQ(e.Reason().Code(), 0x5301DFu) << Text(e);
    EXPECT_EQ(e.Reason().GetText(),
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
  const Common::Error e = Properties(vm)->SetProperty(u"Name", u"Taken");
  EXPECT_EQ(e.Code(), 0x530015u) << Text(e);
  EXPECT_EQ(e.GetText(), u"Failed to rename virtual machine 'Crate' to 'Taken'.");
  EXPECT_EQ(e.Reason().Code(), 0x40013u) << Text(e);
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
  const Common::Error e = Access(vm)->Close();
  EXPECT_EQ(e.Code(), 0x53000Cu);
  EXPECT_EQ(e.GetText(), u"Cannot modify read-only virtual machine 'Ro.vmc'.");
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
  EXPECT_EQ(e.Code(), 0x53000Cu) << Text(e);
  EXPECT_EQ(e.GetText(), u"Failed to parse virtual machine configuration file.");
  EXPECT_EQ(e.Reason().Code(), 0x3B0001u);
  EXPECT_EQ(e.Reason().GetNumber("line"), 1u);

  // Keys that are missing have their own errors.
  WriteBytes(VmcPath("Bad"), "<preferences><hardware/></preferences>");
  AutoRef<SafeVM> bare = Open(VmcPath("Bad"));
  const Common::Error memory = Properties(bare)->GetProperty(u"Memory", value);
  EXPECT_EQ(memory.Code(), 0x530010u);
  EXPECT_EQ(memory.GetText(), u"Failed to obtain the memory size.");
  const Common::Error firmware = Properties(bare)->GetProperty(u"FirmwareType", value);
  EXPECT_EQ(firmware.Code(), 0x5301A6u);
  EXPECT_EQ(firmware.GetText(), u"Failed to obtain the firmware type.");
}

TEST_F(MachineTest, FileGoneAfterOpeningIsReportedWithItsPlace) {
  Create(u"Gone");
  AutoRef<SafeVM> vm = Open(VmcPath("Gone"));
  std::filesystem::remove(VmcPath("Gone"));
  std::u16string value;
  const Common::Error e = Properties(vm)->GetProperty(u"Memory", value);
  EXPECT_EQ(e.Code(), 0x5301E3u) << Text(e);
  const std::u16string folder = dir.Wide("Gone") + u"/";
  EXPECT_EQ(e.GetText(), u"No virtual machine found ('" + folder +
                             u"', 'Gone.vmc') or it cannot be accessed.");
  EXPECT_EQ(std::u16string(e.GetWideString("FullPath")), folder);
  EXPECT_EQ(std::u16string(e.GetWideString("FileName")), u"Gone.vmc");
  EXPECT_EQ(e.Reason().Code(), 0x40011u);
}

TEST_F(MachineTest, ConfigurationThatCannotBeWrittenFailsTheFlush) {
  AutoRef<SafeVM> vm = Create(u"Blocked");
  Get(vm, u"Memory");
  std::filesystem::remove(VmcPath("Blocked"));
  ASSERT_EQ(::mkdir(VmcPath("Blocked").c_str(), 0777), 0);  // a folder where the file goes
  Properties(vm)->SetProperty(u"Memory", u"1073741824");
  const Common::Error e = Access(vm)->Close();
  EXPECT_EQ(e.Code(), 0x53000Cu) << Text(e);
  EXPECT_EQ(e.GetText(), u"Failed to create configuration file 'Blocked.vmc'.");
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
  const Common::Error bad = Properties(vm)->SetProperty(u"Memory", u"lots");
  EXPECT_EQ(bad.Code(), 0x53006Fu);
  EXPECT_EQ(bad.GetText(), u"Failed to set property 'Memory' to 'lots'.");
  EXPECT_EQ(bad.Reason().Code(), 1u);
  // Hexadecimal forms are numbers too.
  for (auto [given, stored] : {std::pair{u"0x40000000", u"1024"}, std::pair{u" 80000000h ", u"2048"}}) {
    EXPECT_TRUE(Properties(vm)->SetProperty(u"Memory", given).IsEmpty());
    EXPECT_EQ(Get(vm, u"Memory"), stored);
  }
  for (const char16_t* name : {u"ID", u"FileName", u"GuestOS", u"Colour"}) {
    const Common::Error e = Properties(vm)->SetProperty(name, u"x");
    EXPECT_EQ(e.Code(), 0x53002Cu);
    EXPECT_EQ(e.GetText(), u"Property '" + std::u16string(name) + u"' is not supported.");
  }
  std::vector<std::u16string> list;
  EXPECT_EQ(Properties(vm)->GetProperty(u"Memory", list).Code(), 0x53002Cu);
  EXPECT_EQ(vm->ResizeHardDisk(0, 0, 0, 1).Code(), 0x530062u);
}

// Its own three interfaces are used by every test above.
TEST_F(MachineTest, MachineDoesNotAnswerAsTheServer) {
  Processor::InterfaceRef ref;
  Create(u"Ifaces")->GetInterface(ref, VirtualWareRaw::SafeVirtualServer::InterfaceId);
  EXPECT_EQ(ref.Meta, nullptr);
}

}  // namespace
}  // namespace ModuleTest

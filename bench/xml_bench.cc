// What the two forms of a tag tree cost: a document of about 10 MB in the
// shape of a machine configuration (nested settings, typed values, some
// text), written and read in memory as text and in the binary form, rounds
// taken in turn so that drift in the machine hits both alike. A read ends
// with the tree built; freeing it is not timed. Prints each median and the
// binary form's speed-up, and the binary read alone, without a tree.
//
//   xml_bench [rounds]    (default 7)
#include <algorithm>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "common/memory_file.h"
#include "xml/binary_reader.h"
#include "xml/reader.h"
#include "xml/writer.h"

namespace {

std::unique_ptr<Xml::Tag> MakeTree(int machines) {
  auto root = std::make_unique<Xml::Tag>("preferences");
  root->SetAttribute("version", u"2.0");
  for (int m = 0; m < machines; ++m) {
    auto machine = std::make_unique<Xml::Tag>("virtual_machine");
    machine->SetAttribute("id", u"{6a3e9b2c-41f0-4d5e-9c1a-" + std::u16string(12, u'0' + m % 10) + u"}");
    for (int d = 0; d < 4; ++d) {
      auto disk = std::make_unique<Xml::Tag>("ide_connection");
      disk->SetAttribute("bus", d < 2 ? u"0" : u"1");
      disk->SetAttribute("slot", d % 2 ? u"1" : u"0");
      for (const char* name : {"device_type", "file_type", "location", "relative_location"}) {
        auto value = std::make_unique<Xml::Tag>(name);
        value->SetAttribute("type", u"string");
        std::u16string& path = value->Text[0];
        path = u"C:\\Virtual Machines\\Machine ";
        path += static_cast<char16_t>(u'A' + m % 26);
        path += u"\\disk";
        path += static_cast<char16_t>(u'0' + d);
        path += u".vhdx";
        disk->InsertChild(disk->Text.size(), std::move(value));
        disk->Text.back().assign(1, u' ');  // not = u" ": a false -Wrestrict in g++ 12
      }
      machine->InsertChild(machine->Text.size(), std::move(disk));
      machine->Text.back().assign(1, u' ');
    }
    root->InsertChild(root->Text.size(), std::move(machine));
    root->Text.back().assign(1, u' ');
  }
  return root;
}

std::unique_ptr<Common::MemoryFile> Write(const Xml::Tag& root, std::uint32_t flags) {
  auto file = Common::MemoryFile::Create();
  Xml::WriteDocument(&root, *file, flags);
  if (file->Failed()) std::abort();
  return file;
}

std::unique_ptr<Xml::Tag> Read(Common::MemoryFile& file) {
  file.Seek(0);
  std::unique_ptr<Xml::Tag> root;
  std::uint32_t line = 0, column = 0;
  if (!Xml::ParseDocument(root, file, line, column)) std::abort();
  return root;
}

// A freed tree leaves glibc's allocator a great many small free chunks,
// which it merges at the next large allocation, in whatever is timed next.
// A large allocation here makes it merge them outside every timing.
void SettleHeap() {
  void* volatile block = std::malloc(1 << 20);
  std::free(block);
}

// Processor time of this thread, not wall time: the machines this runs on
// are shared, and another process taking the processor is not a cost of
// either form.
double ThreadSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Fn>
double Seconds(Fn fn) {
  const double start = ThreadSeconds();
  fn();
  return ThreadSeconds() - start;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
  const auto tree = MakeTree(7000);
  const auto text = Write(*tree, Xml::kByteOrderMark);
  const auto binary = Write(*tree, Xml::kBinary);
  std::printf("document: %.1f MB as text, %.1f MB binary\n", text->Size() / 1e6, binary->Size() / 1e6);

  std::vector<double> writeText, writeBinary, readText, readBinary;
  for (int i = 0; i < rounds; ++i) {
    const bool textFirst = i % 2 == 0;
    for (int side = 0; side < 2; ++side) {
      if ((side == 0) == textFirst) {
        writeText.push_back(Seconds([&] { Write(*tree, Xml::kByteOrderMark); }));
        std::unique_ptr<Xml::Tag> kept;  // freed outside the timing
        readText.push_back(Seconds([&] { kept = Read(*text); }));
        kept.reset();
        SettleHeap();
      } else {
        writeBinary.push_back(Seconds([&] { Write(*tree, Xml::kBinary); }));
        std::unique_ptr<Xml::Tag> kept;
        readBinary.push_back(Seconds([&] { kept = Read(*binary); }));
        kept.reset();
        SettleHeap();
      }
    }
  }
  std::vector<double> decode;
  for (int i = 0; i < rounds; ++i) decode.push_back(Seconds([&] {
    binary->Seek(4);
    Xml::xml_reader_interface none;
    if (!Xml::ReadBinaryDocument(none, *binary)) std::abort();
  }));
  std::printf("binary read without building a tree: %.1f ms\n", Median(decode) * 1e3);
  const double wt = Median(writeText), wb = Median(writeBinary);
  const double rt = Median(readText), rb = Median(readBinary);
  std::printf("median of %d rounds  text      binary    binary speed-up\n", rounds);
  std::printf("write               %7.1f ms %7.1f ms %5.1fx\n", wt * 1e3, wb * 1e3, wt / wb);
  std::printf("read                %7.1f ms %7.1f ms %5.1fx\n", rt * 1e3, rb * 1e3, rt / rb);
  return 0;
}

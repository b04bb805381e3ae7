// ZIP archives: members written, closed and read back, appending, UTF-8 names, the
// interface's edge cases, hostile files, and archives exchanged with zip, unzip and
// Python's zipfile (which also checks the UTF-8 flag of every entry).
#include <list>

#include "archive/archive_fixture.hpp"

namespace {

using q2test::read_stream;
namespace q2 = quillon2;
namespace error = quillon2::error;

std::list<std::wstring> names_of(q2::archive_reader_t& archive) {
  std::list<std::wstring> names;
  for (auto it = archive.enum_streams(); !it.at_end(); it.next()) names.push_back(it.current());
  return names;
}

class ZipArchive : public q2test::archive_test {
 protected:
  // Writes the members (name, content) with default compression.
  void write_zip(std::string const& name, std::list<std::pair<std::wstring, std::string>> const& members,
                 bool append = false) {
    q2::sptr_t<q2::archive_writer_t> zip;
    ASSERT_TRUE(q2::create_zip_writer(at(name), zip, append).is_ok());
    for (auto const& [member, content] : members) {
      ASSERT_TRUE(zip->create_new_stream(member, 0).is_ok());
      ASSERT_TRUE(zip->write(content.data(), content.size()).is_ok());
      ASSERT_TRUE(zip->close().is_ok());
    }
  }
  q2::sptr_t<q2::archive_reader_t> open_zip(std::string const& name) {
    q2::sptr_t<q2::archive_reader_t> zip;
    EXPECT_TRUE(q2::create_zip_reader(at(name), zip).is_ok());
    return zip;
  }
};

TEST_F(ZipArchive, MembersComeBackAsWrittenInEveryCompressionWithoutSeeking) {
  std::string const big = q2test::make_text(300000);
  {
    q2::sptr_t<q2::archive_writer_t> zip;
    ASSERT_TRUE(q2::create_zip_writer(at("a.zip"), zip, false).is_ok());
    for (auto const& [name, level] : {std::pair{L"default", 0}, {L"fast", 1}, {L"best", 7}}) {
      ASSERT_TRUE(zip->create_new_stream(name, level).is_ok());
      ASSERT_TRUE(zip->write(big.data(), 1000).is_ok());
      ASSERT_TRUE(zip->write(big.data() + 1000, big.size() - 1000).is_ok());
      q2::u64_t size = 0, position = 0;
      ASSERT_TRUE(zip->get_size(&size).is_ok() && zip->get_position(&position).is_ok());
      EXPECT_EQ(size, big.size());  // bytes written, not compressed
      EXPECT_EQ(position, big.size());
      EXPECT_EQ(zip->seek(0, 0), error::IsNot.Implemented.Function);
      ASSERT_TRUE(zip->close().is_ok());
    }
    ASSERT_TRUE(zip->create_new_stream(L"empty", 0).is_ok());
    ASSERT_TRUE(zip->close().is_ok());
  }
  auto zip = open_zip("a.zip");
  ASSERT_TRUE(zip);
  EXPECT_EQ(names_of(*zip), (std::list<std::wstring>{L"default", L"fast", L"best", L"empty"}));
  for (std::wstring name : {L"best", L"default", L"fast"}) EXPECT_EQ(read_stream(*zip, name), big);
  ASSERT_TRUE(zip->open_stream(L"fast").is_ok());
  char buffer[3];
  ASSERT_TRUE(zip->read(buffer, 3, nullptr).is_ok());
  EXPECT_EQ(zip->seek(0, 0), error::IsNot.Implemented.Function);
  q2::u64_t position = 0, size = 0;
  EXPECT_TRUE(zip->get_position(&position).is_ok() && zip->get_size(&size).is_ok());
  EXPECT_EQ(position, 3u);
  EXPECT_EQ(size, big.size());
  EXPECT_TRUE(zip->close().is_ok());

  ASSERT_TRUE(zip->open_stream(L"empty").is_ok());
  EXPECT_TRUE(zip->has_data().is_false());
  char byte = 0;
  q2::u64_t got = 7;
  EXPECT_TRUE(zip->read(&byte, 1, &got).is_ok());  // past the end: nothing, and no failure
  EXPECT_EQ(got, 0u);
  EXPECT_TRUE(zip->close().is_ok());
  EXPECT_EQ(zip->open_stream(L"nope"), error::FailedTo.Find.The.Stream);
  EXPECT_EQ(zip->open_stream(L"BEST"), error::FailedTo.Find.The.Stream);
}

TEST_F(ZipArchive, NamesAreUtf8LongNamesListCutAndImpossibleNamesRefused) {
  std::wstring const utf8_name = L"d\u00e9j\u00e0/\u65e5\u672c \U0001F600.txt";
  std::wstring const long_name(120, L'x');
  // 98 ASCII bytes and a two-byte character: the cut after 99 bytes splits it.
  std::wstring const split_name = std::wstring(98, L'y') + L"\u00e9tail";
  write_zip("u.zip", {{utf8_name, "u"}, {long_name, "long"}, {split_name, "split"}});

  auto zip = open_zip("u.zip");
  auto const names = names_of(*zip);
  ASSERT_EQ(names.size(), 3u);
  EXPECT_EQ(names.front(), utf8_name);
  EXPECT_EQ(*std::next(names.begin()), std::wstring(99, L'x'));
  EXPECT_EQ(names.back(), std::wstring(98, L'y') + L"\uFFFD");
  EXPECT_EQ(read_stream(*zip, long_name), "long");
  EXPECT_EQ(read_stream(*zip, split_name), "split");
  EXPECT_EQ(read_stream(*zip, utf8_name), "u");

  // Names the format cannot hold are refused, and the writer stays usable.
  q2::sptr_t<q2::archive_writer_t> writer;
  ASSERT_TRUE(q2::create_zip_writer(at("n.zip"), writer, false).is_ok());
  for (std::wstring name : {std::wstring(L"a\0b", 3), std::wstring(70000, L'n'), std::wstring()}) {
    EXPECT_EQ(writer->create_new_stream(name, 0), error::FailedTo.Open.The.Stream);
  }
  EXPECT_TRUE(writer->create_new_stream(L"fine", 0).is_ok());
}

TEST_F(ZipArchive, AppendingKeepsTheMembersThatWereThereEvenNone) {
  write_zip("a.zip", {{L"one", "1"}, {L"two", "22"}});
  write_zip("a.zip", {{L"three", "333"}}, true);
  auto zip = open_zip("a.zip");
  EXPECT_EQ(names_of(*zip), (std::list<std::wstring>{L"one", L"two", L"three"}));
  EXPECT_EQ(read_stream(*zip, L"two"), "22");
  EXPECT_EQ(read_stream(*zip, L"three"), "333");

  write_zip("e.zip", {});
  zip = open_zip("e.zip");
  ASSERT_TRUE(zip);
  EXPECT_TRUE(zip->enum_streams().at_end());
  EXPECT_EQ(zip->open_stream(L"x"), error::FailedTo.Find.The.Stream);
  EXPECT_EQ(zip->has_data(), error::IsNot.Valid.State);
  write_zip("e.zip", {{L"later", "l"}}, true);
  EXPECT_EQ(read_stream(*open_zip("e.zip"), L"later"), "l");

  q2::sptr_t<q2::archive_writer_t> missing;
  EXPECT_EQ(q2::create_zip_writer(at("missing.zip"), missing, true),
            error::FailedTo.Access.The.Archive);
  EXPECT_FALSE(missing);
}

TEST_F(ZipArchive, ReachingFourGibibytesIsRefusedBeforeWriting) {
  // A sparse file gives 4 GiB of address space without memory or disk.
  q2::sptr_t<q2::file_mapping_t> big;
  ASSERT_TRUE(q2::create_file_mapping(big, at("big"), true, 0, q2::u64_t{4} << 30).is_ok());
  q2::sptr_t<q2::archive_writer_t> zip;
  ASSERT_TRUE(q2::create_zip_writer(at("z.zip"), zip, false).is_ok());
  ASSERT_TRUE(zip->create_new_stream(L"huge", 1).is_ok());
  EXPECT_EQ(zip->write(big->get_address(), big->get_size()), error::FailedTo.Write.The.Stream);
  EXPECT_EQ(zip->write(big->get_address(), big->get_size() - 65536), error::FailedTo.Write.The.Stream);
  EXPECT_TRUE(zip->write("small", 5).is_ok());
  EXPECT_TRUE(zip->close().is_ok());
  zip = nullptr;
  EXPECT_LT(q2test::read_file(file("z.zip")).size(), 1000u);
  EXPECT_EQ(run("unzip -t z.zip"), 0);
}

TEST_F(ZipArchive, HostileArchivesGiveFailuresNotCrashes) {
  std::string const content = q2test::make_text(50000);
  write_zip("good.zip", {{L"m", content}});
  std::string const good = q2test::read_file(file("good.zip"));
  std::size_t const directory = good.find("PK\x01\x02");
  ASSERT_NE(directory, std::string::npos);

  // A wrong CRC: the data reads, close gives the verdict.
  std::string bytes = good;
  bytes[14] ^= 0x5A;  // the local header and the directory agree, the data does not
  bytes[directory + 16] ^= 0x5A;
  q2test::write_file(file("crc.zip"), bytes);
  auto crc = open_zip("crc.zip");
  ASSERT_TRUE(crc->open_stream(L"m").is_ok());
  EXPECT_EQ(q2test::read_rest(*crc), content);
  EXPECT_EQ(crc->close(), error::FailedTo.Close.The.Archive);

  // A size that claims more than the data holds: the read that gets nothing fails.
  bytes = good;
  bytes[24] = bytes[directory + 26] = 0x7F;
  q2test::write_file(file("long.zip"), bytes);
  auto liar = open_zip("long.zip");
  ASSERT_TRUE(liar->open_stream(L"m").is_ok());
  std::string buffer(1 << 20, '\0');
  q2::u64_t got = 0;
  ASSERT_TRUE(liar->read(buffer.data(), buffer.size(), &got).is_ok());
  EXPECT_EQ(buffer.substr(0, got), content);
  EXPECT_TRUE(liar->has_data().is_ok());
  EXPECT_EQ(liar->read(buffer.data(), buffer.size(), &got), error::FailedTo.Read.The.Archive);

  // The file cut anywhere.
  for (std::size_t length = 0; length < good.size(); length += 499) {
    q2test::write_file(file("t.zip"), good.substr(0, length));
    q2::sptr_t<q2::archive_reader_t> zip;
    if (q2::create_zip_reader(at("t.zip"), zip).failed()) continue;
    for (auto it = zip->enum_streams(); !it.at_end(); it.next()) read_stream(*zip, it.current());
  }

  // Not archives at all.
  q2test::write_file(file("text.zip"), "just text");
  q2::sptr_t<q2::archive_reader_t> none;
  EXPECT_EQ(q2::create_zip_reader(at("text.zip"), none), error::FailedTo.Open.The.Archive);
  EXPECT_EQ(q2::create_zip_reader(at(""), none), error::FailedTo.Open.The.Archive);
  EXPECT_EQ(q2::create_zip_reader(at("missing.zip"), none), error::FailedTo.Open.The.Archive);
  ASSERT_EQ(::mkfifo(file("fifo.zip").c_str(), 0600), 0);
  EXPECT_EQ(q2::create_zip_reader(at("fifo.zip"), none), error::FailedTo.Open.The.Archive);
  EXPECT_FALSE(none);
}

TEST_F(ZipArchive, OtherToolsReadOurArchives) {
  std::string const content = q2test::make_text(40000);
  write_zip("ours.zip", {{L"plain.txt", content}, {L"caf\u00e9.txt", "x"}, {L"empty", ""}});
  EXPECT_EQ(run("unzip -t ours.zip"), 0);
  EXPECT_EQ(run("python3 -c \"import zipfile, sys\n"
                "z = zipfile.ZipFile('ours.zip')\n"
                "assert z.testzip() is None\n"
                "assert z.namelist() == ['plain.txt', 'caf\\u00e9.txt', 'empty'], z.namelist()\n"
                "assert all(i.flag_bits & 0x800 for i in z.infolist())\n"
                "assert z.getinfo('plain.txt').date_time == (1980, 1, 1, 0, 0, 0)\n"
                "assert len(z.read('plain.txt')) == 40000\""),
            0);
}

TEST_F(ZipArchive, WeReadArchivesOfOtherTools) {
  q2test::write_file(file("small.txt"), "tiny");
  q2test::write_file(file("large.txt"), q2test::make_text(100000));
  ASSERT_EQ(run("zip -q -0 stored.zip small.txt large.txt && zip -q -9 deflated.zip small.txt large.txt"), 0);
  for (std::string name : {"stored.zip", "deflated.zip"}) {
    auto zip = open_zip(name);
    ASSERT_TRUE(zip) << name;
    EXPECT_EQ(names_of(*zip), (std::list<std::wstring>{L"small.txt", L"large.txt"}));
    EXPECT_EQ(read_stream(*zip, L"small.txt"), "tiny");
    EXPECT_EQ(read_stream(*zip, L"large.txt"), q2test::make_text(100000));
  }
  // Data in front of the archive (a self-extractor's program) shifts every offset.
  q2test::write_file(file("sfx.zip"), "#!/bin/sh\nexit 0\n" + q2test::read_file(file("deflated.zip")));
  auto sfx = open_zip("sfx.zip");
  ASSERT_TRUE(sfx);
  EXPECT_EQ(read_stream(*sfx, L"large.txt"), q2test::make_text(100000));
  EXPECT_EQ(read_stream(*sfx, L"small.txt"), "tiny");
}

}  // namespace

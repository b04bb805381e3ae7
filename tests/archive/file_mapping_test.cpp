// File mappings of real files (empty, small, at an offset, sparse and huge, writable and
// cut on release) and mappings on streams, with the edge cases of both.
#include "archive/archive_fixture.hpp"

namespace {

namespace q2 = quillon2;
namespace error = quillon2::error;

class FileMapping : public q2test::archive_test {
 protected:
  q2::u64_t length_of(std::string const& name) const {
    struct stat st {};
    return ::stat(file(name).c_str(), &st) == 0 ? static_cast<q2::u64_t>(st.st_size) : ~0ull;
  }
};

TEST_F(FileMapping, ReadMappingsSeeTheFileOrTheAskedPartEvenEmpty) {
  std::string const text = q2test::make_text(10000);
  q2test::write_file(file("f"), text);
  q2::sptr_t<q2::file_mapping_t> map;
  ASSERT_TRUE(q2::create_file_mapping(map, at("f"), false, 0, 0).is_ok());
  ASSERT_EQ(map->get_size(), text.size());
  EXPECT_EQ(std::memcmp(map->get_address(), text.data(), text.size()), 0);
  EXPECT_TRUE(map->close().is_ok());

  // An offset inside a page.
  ASSERT_TRUE(q2::create_file_mapping(map, at("f"), false, 5000, 100).is_ok());
  EXPECT_EQ(std::string(static_cast<char*>(map->get_address()), 100), text.substr(5000, 100));

  EXPECT_EQ(q2::create_file_mapping(map, at("f"), false, 9000, 2000), error::FailedTo.Create.File.Mapping);
  EXPECT_FALSE(map);
  EXPECT_EQ(q2::create_file_mapping(map, at("missing"), false, 0, 0), error::FailedTo.Create.File.Mapping);
  EXPECT_EQ(q2::create_file_mapping(map, at(""), false, 0, 0), error::FailedTo.Create.File.Mapping);

  q2test::write_file(file("empty"), "");
  ASSERT_TRUE(q2::create_file_mapping(map, at("empty"), false, 0, 0).is_ok());
  EXPECT_EQ(map->get_size(), 0u);
  EXPECT_NE(map->get_address(), nullptr);
  ASSERT_TRUE(q2::create_file_mapping(map, at("new"), true, 0, 0).is_ok());
  EXPECT_EQ(map->get_size(), 0u);
  map = nullptr;
  EXPECT_EQ(length_of("new"), 0u);
}

TEST_F(FileMapping, SparseFilesOfSeveralGibibytesMap) {
  q2::u64_t const size = q2::u64_t{5} << 30;
  q2::sptr_t<q2::file_mapping_t> map;
  ASSERT_TRUE(q2::create_file_mapping(map, at("sparse"), true, 0, size).is_ok());
  ASSERT_EQ(map->get_size(), size);
  static_cast<char*>(map->get_address())[size - 1] = 'z';
  map = nullptr;
  ASSERT_TRUE(q2::create_file_mapping(map, at("sparse"), false, size - 4096, 0).is_ok());
  EXPECT_EQ(map->get_size(), 4096u);
  EXPECT_EQ(static_cast<char*>(map->get_address())[4095], 'z');
  EXPECT_EQ(static_cast<char*>(map->get_address())[0], '\0');
}

TEST_F(FileMapping, WritableMappingsAreCutOnTheLastRelease) {
  q2::sptr_t<q2::file_mapping_t> map;
  EXPECT_EQ(q2::create_file_mapping(map, at("w"), true, 1, 1000), error::IsNot.Supported.Argument);
  ASSERT_TRUE(q2::create_file_mapping(map, at("w"), true, 0, 1000).is_ok());
  std::memcpy(map->get_address(), "0123456789", 10);
  EXPECT_EQ(map->resize_on_close(0), error::IsNot.Valid.Argument);
  EXPECT_TRUE(map->resize_on_close(10).is_ok());
  EXPECT_EQ(map->get_size(), 1000u);
  EXPECT_EQ(length_of("w"), 1000u);
  // A second writer is kept out while the file is mapped for writing.
  q2::sptr_t<q2::file_mapping_t> other;
  EXPECT_EQ(q2::create_file_mapping(other, at("w"), true, 0, 0), error::FailedTo.Create.File.Mapping);
  map = nullptr;
  EXPECT_EQ(q2test::read_file(file("w")), "0123456789");

  // A read mapping is not cut: the request is reported when it ends.
  q2test::assert_recorder_t asserts;
  ASSERT_TRUE(q2::create_file_mapping(map, at("w"), false, 0, 0).is_ok());
  EXPECT_TRUE(map->resize_on_close(1).is_ok());
  map = nullptr;
  EXPECT_TRUE(asserts.saw("!m_size"));
  EXPECT_EQ(q2test::read_file(file("w")), "0123456789");
}

TEST_F(FileMapping, MappingsOnReadStreamsHoldTheRest) {
  q2::sptr_t<q2::archive_writer_t> out;
  ASSERT_TRUE(q2::create_directory_archive(at("store"), out).is_ok());
  ASSERT_TRUE(out->create_new_stream(L"s", 0).is_ok());
  ASSERT_TRUE(out->write("0123456789", 10).is_ok());
  ASSERT_TRUE(out->close().is_ok());

  q2::sptr_t<q2::archive_reader_t> in;
  ASSERT_TRUE(q2::create_directory_archive(at("store"), in).is_ok());
  ASSERT_TRUE(in->open_stream(L"s").is_ok());
  char skip[3];
  ASSERT_TRUE(in->read(skip, 3, nullptr).is_ok());
  q2::sptr_t<q2::file_mapping_t> map;
  ASSERT_TRUE(q2::create_mapping_on_stream(map, q2::sptr_t<q2::read_stream_t>(in), 0).is_ok());
  EXPECT_EQ(std::string(static_cast<char*>(map->get_address()), map->get_size()), "3456789");
  EXPECT_EQ(map->resize_on_close(3), error::FailedTo.Resize.Readonly.Stream);

  ASSERT_TRUE(in->seek(0, 0).is_ok());
  EXPECT_EQ(q2::create_mapping_on_stream(map, q2::sptr_t<q2::read_stream_t>(in), 11),
            error::FailedTo.Read.Full.Data);
  EXPECT_FALSE(map);
}

TEST_F(FileMapping, MappingsOnZipMembers) {
  std::string const text = q2test::make_text(70000);
  q2::sptr_t<q2::archive_writer_t> zip;
  ASSERT_TRUE(q2::create_zip_writer(at("m.zip"), zip, false).is_ok());
  ASSERT_TRUE(zip->create_new_stream(L"block", 0).is_ok());
  q2::sptr_t<q2::file_mapping_t> map;
  EXPECT_EQ(q2::create_mapping_on_stream(map, q2::sptr_t<q2::write_stream_t>(zip), 0),
            error::IsNot.Valid.Size);
  ASSERT_TRUE(q2::create_mapping_on_stream(map, q2::sptr_t<q2::write_stream_t>(zip), 10).is_ok());
  ASSERT_TRUE(map->resize_on_close(text.size()).is_ok());
  std::memcpy(map->get_address(), text.data(), text.size());
  ASSERT_TRUE(map->close().is_ok());
  ASSERT_TRUE(map->close().is_ok());  // writes once
  EXPECT_EQ(map->resize_on_close(5), error::FailedTo.Resize.Readonly.Stream);
  ASSERT_TRUE(zip->close().is_ok());
  zip = nullptr;

  q2::sptr_t<q2::archive_reader_t> in;
  ASSERT_TRUE(q2::create_zip_reader(at("m.zip"), in).is_ok());
  ASSERT_TRUE(in->open_stream(L"block").is_ok());
  ASSERT_TRUE(q2::create_mapping_on_stream(map, q2::sptr_t<q2::read_stream_t>(in), 0).is_ok());
  EXPECT_EQ(std::string(static_cast<char*>(map->get_address()), map->get_size()), text);
  EXPECT_TRUE(in->close().is_ok());
}

TEST_F(FileMapping, VolumeCompressionAnswersFalseWhereUnsupported) {
  q2test::write_file(file("c"), "x");
  // Ok or False, by file system: tmpfs has no flags, ext4 keeps the flag.
  EXPECT_TRUE(q2::set_volume_compression(at("c"), true).succeeded());
  EXPECT_TRUE(q2::set_volume_compression(at("c"), false).succeeded());
  EXPECT_TRUE(q2::set_volume_compression(q2::make_path(m_dir.path()), false).succeeded());
  EXPECT_EQ(q2::set_volume_compression(at("missing"), true), error::FailedTo.Open.The.File);
}

}  // namespace

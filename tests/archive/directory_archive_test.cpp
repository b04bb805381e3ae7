// Directory stores: streams written, closed and read back as files of one directory,
// names that would leave the root, and the edge cases of the interface.
#include <cerrno>
#include <set>

#include "archive/archive_fixture.hpp"

namespace {

using q2test::read_stream;
namespace q2 = quillon2;
namespace error = quillon2::error;

class DirectoryArchive : public q2test::archive_test {
 protected:
  q2::sptr_t<q2::archive_writer_t> writer(std::string const& name) {
    q2::sptr_t<q2::archive_writer_t> out;
    EXPECT_TRUE(q2::create_directory_archive(at(name), out).is_ok());
    return out;
  }
  q2::sptr_t<q2::archive_reader_t> reader(std::string const& name) {
    q2::sptr_t<q2::archive_reader_t> in;
    EXPECT_TRUE(q2::create_directory_archive(at(name), in).is_ok());
    return in;
  }
};

TEST_F(DirectoryArchive, StreamsAreFilesOfTheRoot) {
  auto out = writer("made/below");  // made with its parents
  ASSERT_TRUE(out);
  ASSERT_TRUE(out->create_new_stream(L"a.txt", 9).is_ok());
  ASSERT_TRUE(out->write("alpha", 5).is_ok());
  ASSERT_TRUE(out->create_new_stream(L"\u00fc.bin", 0).is_ok());  // closes a.txt first
  ASSERT_TRUE(out->write("beta", 4).is_ok());
  q2::u64_t size = 0;
  ASSERT_TRUE(out->get_size(&size).is_ok());
  EXPECT_EQ(size, 4u);
  ASSERT_TRUE(out->close().is_ok());
  out = nullptr;
  EXPECT_EQ(q2test::read_file(file("made/below/a.txt")), "alpha");

  auto in = reader("made/below");
  std::set<std::wstring> names;
  for (auto it = in->enum_streams(); !it.at_end(); it.next()) names.insert(it.current());
  EXPECT_EQ(names, (std::set<std::wstring>{L"a.txt", L"\u00fc.bin"}));
  EXPECT_EQ(read_stream(*in, L"\u00fc.bin"), "beta");

  ASSERT_TRUE(in->open_stream(L"a.txt").is_ok());
  ASSERT_TRUE(in->seek(2, 0).is_ok());
  char buffer[10];
  q2::u64_t got = 0;
  ASSERT_TRUE(in->read(buffer, sizeof buffer, &got).is_ok());  // short at the end: no failure
  EXPECT_EQ(std::string(buffer, got), "pha");
  EXPECT_TRUE(in->has_data().is_false());
  ASSERT_TRUE(in->seek(static_cast<q2::u64_t>(-2), 2).is_ok());
  q2::u64_t position = 0;
  ASSERT_TRUE(in->get_position(&position).is_ok());
  EXPECT_EQ(position, 3u);
  EXPECT_TRUE(in->has_data().is_ok());
}

TEST_F(DirectoryArchive, NamesThatAreNoFileNamesAreRefused) {
  auto out = writer("root");
  for (std::wstring name : {L"", L".", L"..", L"/etc/passwd", L"../up", L"a/b", L"a\\b",
                            L"\\abs"}) {
    EXPECT_EQ(out->create_new_stream(name, 0), error::IsNot.Valid.Argument) << name;
  }
  EXPECT_EQ(out->create_new_stream(std::wstring(L"a\0b", 3), 0), error::IsNot.Valid.Argument);
  auto in = reader("root");
  EXPECT_EQ(in->open_stream(L"../root"), error::IsNot.Valid.Argument);
  EXPECT_EQ(q2test::read_file(file("up")), "");
}

TEST_F(DirectoryArchive, ExistingDirectoriesKeepTheirFilesAndNamesAreTruncated) {
  ASSERT_EQ(::mkdir(file("d").c_str(), 0700), 0);
  q2test::write_file(file("d/keep"), "kept");
  q2test::write_file(file("d/over"), "a long old content");
  auto out = writer("d");
  ASSERT_TRUE(out->create_new_stream(L"over", 0).is_ok());
  ASSERT_TRUE(out->write("new", 3).is_ok());
  ASSERT_TRUE(out->close().is_ok());
  EXPECT_EQ(q2test::read_file(file("d/keep")), "kept");
  EXPECT_EQ(q2test::read_file(file("d/over")), "new");

  // A link in the root is not written through.
  q2test::write_file(file("outside"), "safe");
  ASSERT_EQ(::symlink(file("outside").c_str(), file("d/link").c_str()), 0);
  EXPECT_EQ(out->create_new_stream(L"link", 0), error::FailedTo.Write.The.File);
  EXPECT_EQ(q2test::read_file(file("outside")), "safe");
}

TEST_F(DirectoryArchive, MissingAndOddStreamsFailAsMissing) {
  ASSERT_EQ(::mkdir(file("d").c_str(), 0700), 0);
  ASSERT_EQ(::mkdir(file("d/sub").c_str(), 0700), 0);
  ASSERT_EQ(::mkfifo(file("d/fifo").c_str(), 0600), 0);
  q2test::write_file(file("d/empty"), "");
  auto in = reader("d");
  q2::error_code_t const missing = in->open_stream(L"missing");
  EXPECT_EQ(missing, error::FailedTo.Write.The.File);
  EXPECT_NE(missing.as_string().find(std::strerror(ENOENT)), std::string::npos);
  EXPECT_EQ(in->open_stream(L"sub"), error::FailedTo.Write.The.File);
  EXPECT_EQ(in->open_stream(L"fifo"), error::FailedTo.Write.The.File);  // and no hang

  ASSERT_TRUE(in->open_stream(L"empty").is_ok());
  EXPECT_TRUE(in->has_data().is_false());
  char byte;
  q2::u64_t got = 1;
  EXPECT_TRUE(in->read(&byte, 1, &got).is_ok());
  EXPECT_EQ(got, 0u);
  EXPECT_TRUE(in->close().is_ok());
  EXPECT_EQ(in->close(), error::IsNot.Valid.State);
  EXPECT_EQ(in->read(&byte, 1, &got), error::IsNot.Valid.State);
  {
    q2test::assert_recorder_t asserts;  // asked without a stream
    EXPECT_EQ(in->has_data(), error::IsNot.Valid.State);
    EXPECT_TRUE(asserts.saw("code.succeeded()"));
  }

  q2::sptr_t<q2::archive_reader_t> none;
  EXPECT_EQ(q2::create_directory_archive(at("nowhere"), none), error::IsNot.Valid.Path);
  EXPECT_FALSE(none);
  q2test::write_file(file("plain"), "");
  q2::sptr_t<q2::archive_writer_t> blocked;
  EXPECT_EQ(q2::create_directory_archive(at("plain/below"), blocked),
            error::FailedTo.Create.The.Directory);
}

}  // namespace

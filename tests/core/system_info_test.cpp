// The system queries. Every MPI case sets all the variables it depends on through
// set_environ_value, which changes the remembered values as well, so that the cases
// do not depend on each other or on the environment the tests run in.

#include <quillon2/core/environ.hpp>
#include <quillon2/core/system_info.hpp>

#include "core/core_support.hpp"

namespace {

using namespace quillon2;

TEST(SystemInfo, AnswersArePlausible) {
  EXPECT_GE(getPhysicalMemorySize(), u64_t{64} << 20);
  EXPECT_LT(getPhysicalMemorySize(), u64_t{1} << 50);
  std::wstring const host = get_fq_host_name();
  EXPECT_TRUE(!host.empty() && host.find_first_of(std::wstring(L" \t\n\0", 4)) == host.npos);
  EXPECT_TRUE(is_valid_locale());
  enable_zephnotify();
}

TEST(MpiRank, FirstNonEmptyVariableDecides) {
  struct {
    wchar_t const *pmi_rank, *pmi_id, *ompi_rank;
    int rank;
  } const cases[] = {{L"", L"", L"", -1},
                     {L"", L"3", L"7", 3},
                     {L"5", L"3", L"7", 5},
                     {L"", L"", L"12", 12},
                     {L"first", L"3", L"", 0}};  // junk: the parser's answer, not PMI_ID
  for (auto const& c : cases) {
    set_environ_value(L"PMI_RANK", c.pmi_rank);
    set_environ_value(L"PMI_ID", c.pmi_id);
    set_environ_value(L"OMPI_COMM_WORLD_RANK", c.ompi_rank);
    EXPECT_EQ(c.rank, detectMPIRank()) << c.pmi_rank << "|" << c.pmi_id << "|" << c.ompi_rank;
  }
}

TEST(MpiJob, FirstNonEmptyVariableWinsAsItStands) {
  for (wchar_t const* name : {L"ZL_MPI_HYDRA_UUID", L"SLURM_JOBID", L"SLURM_JOB_ID", L"PBS_JOBID",
                              L"LSB_JOBID", L"JOB_ID"}) {
    set_environ_value(name, L"");
  }
  EXPECT_EQ(L"", getMPIJobId());
  set_environ_value(L"JOB_ID", L"42");
  set_environ_value(L"LSB_JOBID", L"lsf.9");
  EXPECT_EQ(L"lsf.9", getMPIJobId());
  set_environ_value(L"ZL_MPI_HYDRA_UUID", L"hydra 5f1c");
  EXPECT_EQ(L"hydra 5f1c", getMPIJobId());
}

}  // namespace

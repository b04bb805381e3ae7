// The system queries. Every MPI case sets all the variables it depends on through
// set_environ_value, which changes the remembered values as well, so that the cases
// do not depend on each other or on the environment the tests run in.
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/environ.hpp>
#include <quillon2/core/system_info.hpp>

namespace {

using namespace quillon2;

void set_rank_variables(std::wstring const& pmi_rank, std::wstring const& pmi_id,
                        std::wstring const& ompi_rank) {
  set_environ_value(L"PMI_RANK", pmi_rank);
  set_environ_value(L"PMI_ID", pmi_id);
  set_environ_value(L"OMPI_COMM_WORLD_RANK", ompi_rank);
}

void clear_job_variables() {
  for (wchar_t const* name : {L"ZL_MPI_HYDRA_UUID", L"SLURM_JOBID", L"SLURM_JOB_ID", L"PBS_JOBID",
                              L"LSB_JOBID", L"JOB_ID"}) {
    set_environ_value(name, L"");
  }
}

TEST(SystemInfo, AnswersArePlausible) {
  EXPECT_GE(getPhysicalMemorySize(), u64_t{64} << 20);
  EXPECT_LT(getPhysicalMemorySize(), u64_t{1} << 50);
  std::wstring const host = get_fq_host_name();
  ASSERT_FALSE(host.empty());
  EXPECT_EQ(std::wstring::npos, host.find_first_of(std::wstring(L" \t\n\0", 4)));
  EXPECT_TRUE(is_valid_locale());
  enable_zephnotify();
}

TEST(MpiRank, FirstNonEmptyVariableDecides) {
  set_rank_variables(L"", L"", L"");
  EXPECT_EQ(-1, detectMPIRank());
  set_rank_variables(L"", L"3", L"7");
  EXPECT_EQ(3, detectMPIRank()) << "an empty PMI_RANK passes on to PMI_ID";
  set_rank_variables(L"5", L"3", L"7");
  EXPECT_EQ(5, detectMPIRank());
  set_rank_variables(L"", L"", L"12");
  EXPECT_EQ(12, detectMPIRank());
  set_rank_variables(L"first", L"3", L"");
  EXPECT_EQ(0, detectMPIRank()) << "the parser's result for junk, not the next variable";
}

TEST(MpiJob, FirstNonEmptyVariableWinsAsItStands) {
  clear_job_variables();
  EXPECT_EQ(L"", getMPIJobId());
  set_environ_value(L"SLURM_JOBID", L"slurm-17");
  set_environ_value(L"ZL_MPI_HYDRA_UUID", L"hydra 5f1c");
  EXPECT_EQ(L"hydra 5f1c", getMPIJobId());
  set_environ_value(L"ZL_MPI_HYDRA_UUID", L"");
  EXPECT_EQ(L"slurm-17", getMPIJobId());
  clear_job_variables();
  set_environ_value(L"JOB_ID", L"42");
  set_environ_value(L"LSB_JOBID", L"lsf.9");
  EXPECT_EQ(L"lsf.9", getMPIJobId());
}

}  // namespace

// Small questions to the system: memory, the host's name, the MPI rank and job, and the
// switch of the tracing annotations. All are safe to call from any thread.
#pragma once

#include <string>

#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

// The machine's total physical memory in bytes; 0 if the system does not say.
QUILLON2_API u64_t getPhysicalMemorySize();

// The host's fully qualified domain name, or its plain name when the resolver knows no
// canonical name for it; empty if the system gives neither.
QUILLON2_API std::wstring get_fq_host_name();

// The MPI rank of this process from "PMI_RANK", "PMI_ID" or "OMPI_COMM_WORLD_RANK",
// the first of them that is not empty; -1 when none is set. The value is read as a
// decimal number; text that is not one reads as 0.
QUILLON2_API int detectMPIRank();

// The batch job of this process: the first non-empty value of "ZL_MPI_HYDRA_UUID",
// "SLURM_JOBID", "SLURM_JOB_ID", "PBS_JOBID", "LSB_JOBID" and "JOB_ID"; empty when
// none is set.
QUILLON2_API std::wstring getMPIJobId();

// Whether the process locale needs no correction. Always true here.
QUILLON2_API bool is_valid_locale();

// Switches the library's tracing annotations on for the rest of the process. No tracer
// is linked into this build, so the switch changes no behaviour.
QUILLON2_API void enable_zephnotify();

}  // namespace quillon2

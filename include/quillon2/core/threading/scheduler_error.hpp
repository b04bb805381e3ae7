// The result of every operation of the scheduler and its units.
#pragma once

namespace quillon2::threading {

enum scheduler_error_t {
  seOk = 0,
  // 1 is reserved.
  seQueueFull = 2,       // a unit's queue or thread limit is exhausted
  seGroupCanceling = 3,  // the group lies under a group that is being canceled
  seAlreadyExists = 4,   // the task, unit, callback or batch entry is already registered
  seNotFound = 5,        // the callback to remove is not registered
  // 6 is reserved.
  seTasksPending = 7,      // units cannot be released while tasks are registered
  seInvalidArgument = 8,   // a null task, stage, unit or scheduler, or an empty unit name
  seNoWaitCallback = 9,    // nothing to wait with
  seDelayOutOfRange = 10,  // the delay of a stage is outside the timer's range
  seUnitNotStarted = 11,   // the unit's thread does not run
  seInProgress = 12,       // a batch operation is executing
};

}  // namespace quillon2::threading

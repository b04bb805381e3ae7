// The whole exported interface of quillon2 in one include.
#pragma once

#include <quillon2/export.hpp>

// Core runtime: text, logging, assertions, locks, environment, errors, memory, objects.
#include <quillon2/headers/kesmet.hpp>
#include <quillon2/core/assert.hpp>
#include <quillon2/core/log.hpp>
#include <quillon2/core/threading/mutex.hpp>
#include <quillon2/core/environ.hpp>
#include <quillon2/core/error_code.hpp>
#include <quillon2/core/error_words.hpp>
#include <quillon2/core/check.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/core/system_info.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/smart_pointer.hpp>
#include <quillon2/headers/iterator.hpp>

// Data model: variants, bags, typed pointers and the registry, paths and bag algebra.
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/path_accessor.hpp>

// Task scheduler: signals, tasks, stages and execution units.
#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/scheduler_error.hpp>
#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/unit.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/units/queue_unit.hpp>
#include <quillon2/core/threading/units/delayed_tasks_unit.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>
#include <quillon2/core/threading/units/threads_unit.hpp>

// Bags as XML (element form), value arithmetic and printing.
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_operations.hpp>

// Bags as XML (attribute form), bags as event streams, RELAX NG checks.
#include <quillon2/das/variant_bag_visitor.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>

// Bags as JSON (RapidJSON types stay in <quillon2/das/json_rapidjson.hpp>).
#include <quillon2/das/json.hpp>

// XPath over bags: tree views, the mirror document, results that point into the bag.
#include <quillon2/das/das_generic_xpath.hpp>

// Text helpers: help markup to console text, regex quoting, best match of option names.
#include <quillon2/core/text_helpers.hpp>

// Files: paths, file-system operations, text file content.
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/core/file_system/file_content.hpp>

// The scheduler: tasks through stages, groups, sequencing, cancellation, batch cancel.
#include <quillon2/core/threading/scheduler_impl.hpp>
#include <quillon2/core/threading/batch_cancel.hpp>

// XSL transformation of documents and bags, extension functions, visitors, content factories.
#include <quillon2/das/das_transformation.hpp>

// Configuration: the typed XML store, configuration file places, standard directories.
#include <quillon2/core/config/advanced_xml_config.hpp>
#include <quillon2/core/config/config_manager.hpp>
#include <quillon2/core/file_system/std_paths.hpp>

// Processes: child processes with redirected streams, their environment, shared handles.
#include <quillon2/core/process/environment.hpp>
#include <quillon2/core/process/shared_file_handle.hpp>
#include <quillon2/core/process/process.hpp>

// Containers: byte streams, file mappings, ZIP archives and directory stores.
#include <quillon2/core/streams/stream.hpp>
#include <quillon2/core/streams/file_mapping.hpp>
#include <quillon2/core/streams/archive.hpp>

// Digests (MD5, SHA-1, CRC-32) and the scope timer.
#include <quillon2/core/digest.hpp>
#include <quillon2/core/time_logger.hpp>

// Dynamic libraries and the manager of versioned libraries.
#include <quillon2/core/file_system/shared_lib.hpp>
#include <quillon2/core/file_system/lib_manager.hpp>

// System information: the process list, the editor query, file and volume kinds.
#include <quillon2/das/das_process.hpp>
#include <quillon2/core/file_system/fs_info.hpp>

// Whole-file replacement for clients, and the library's version.
#include <quillon2/core/file_system/atomic_file.hpp>

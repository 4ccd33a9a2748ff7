// One run of the library's resolution, with its own client and dialogs, and a record of every step.
#pragma once

#include "common/output_file.h"
#include "resolve/choices.h"
#include "resolve/display.h"
#include "resolve/request_options.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// `trace` is null if none is wanted.
Resolution resolve(const RequestOptions& options, Task task, const Target& target, Display& display, OutputFile* trace);

}  // namespace kiv::tool

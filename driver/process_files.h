#pragma once
// The per-file driver: one file, a batch from -pipe or -enumdir, or the
// volume scan; and the decompress-to-file mode.
#include <ostream>

#include "driver/arg_list.h"

class kito_user_context;

// Outcome of the last file that reached output_prefetch_entry; false if none did.
bool process_prefetch_files(kito_user_context& context, std::ostream& out);
// Unpacks containers to decompress_target; returns the exit status (0 or -1).
int run_decompress_mode(kito_user_context& context, arg_list const& list);

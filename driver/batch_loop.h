#pragma once
// The loop of a batch: each source of evidence gives its items (files named
// by -pipe or -enumdir, the volume scan, the Prefetch folders of an image),
// and every item passes the same filter, reset, decoding and report.
#include <functional>
#include <ostream>

#include "evidence/batch_input.h"
#include "evidence/evidence_item.h"
#include "evidence/image_volumes.h"

class cmd_params;
struct evidence_item;
class kito_user_context;

// Writes the opening separator of a batch where the form has one; says
// whether each reported file is followed by one.
bool begin_batch_output(cmd_params const& options, std::ostream& out);
// Hears of each item decoded whole, before its report, with its entry.
using decoded_note = std::function<void(evidence_item const&, prefetch_entry const&)>;
// One item of a batch, after the filter, on this thread: reads and decodes the
// item, reports it under its name.
bool process_item(kito_user_context& context, std::ostream& out, evidence_item const& item, bool separator,
                  decoded_note const& note = {});
// -pipe wins over -enumdir. False when the walk cannot start.
bool begin_batch_source(vlmportdir::stdin_stream_ex& source, cmd_params const& options);
// The batch branch: outcome of the last file that passed the filter, false if none did.
bool process_batch(kito_user_context& context, std::ostream& out);
// -image: the files of every Prefetch folder of the image that pass -filter
// ("*.pf" without one) and the time range, read and decoded one at a time.
bool process_image(kito_user_context& context, std::ostream& out);
// What -vss and -deleted ask of an image.
image_reading image_reading_of(cmd_params const& options);
// Whether an item of an image passes the filter and the time range.
bool image_item_wanted(kito_user_context const& context, evidence_item const& item);
// The volume scan: every "*.pf" of the volume's Prefetch folder, unfiltered.
bool process_volume_scan(kito_user_context& context, std::ostream& out);

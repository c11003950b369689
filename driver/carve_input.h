#pragma once
// -carve FILE, and -unallocated with -image: the hits of a signature scan
// reported as the files of a batch.
#include <functional>
#include <ostream>
#include <string>

#include "driver/batch_loop.h"

class content_index;
class image_volumes;
class kito_user_context;

// The report of every hit of -carve, as for the files of a batch: the outcome
// of the last one, false when the file cannot be scanned or holds none.
bool process_carve(kito_user_context& context, std::ostream& out);
// -unallocated: the report of every hit in the free clusters of the image
// opened as `source`, named IMAGE@START_SECTOR:carved@OFFSET. A hit whose
// bytes `contents` has seen (or an earlier hit had) is counted as a duplicate
// and not reported. `note` hears of each hit decoded whole.
// `outcome` is that of the last file before them; the result that of the
// last one reported.
bool process_unallocated(kito_user_context& context, std::ostream& out, image_volumes const& source, bool separator,
                         bool outcome, content_index& contents, decoded_note const& note);
// -decompress_to with -carve: every hit into the target folder; 0 when one was written.
int decompress_carve(kito_user_context& context);
// -decompress_to with -image -unallocated: every hit of the free clusters too;
// sets status to 0 when one was written.
void decompress_unallocated(kito_user_context& context, image_volumes const& source, int& status);

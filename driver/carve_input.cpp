#include "driver/carve_input.h"

#include "driver/batch_loop.h"
#include "driver/content_index.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "evidence/carved_spans.h"
#include "evidence/image_volumes.h"
#include "foundation/sha256.h"
#include "foundation/uni_fileio.h"

namespace {

bool name_wanted(kito_user_context const& context, std::string const& name)
{
    return matches_filter(context, name, context.m_filter_list, nullptr, /*stream_mode=*/false);
}

} // namespace

bool process_carve(kito_user_context& context, std::ostream& out)
{
    bool const separator = begin_batch_output(context, out);
    context.m_check_tally.carving = true;
    bool outcome = false;
    bool const scanned = carve_file(
        context.m_carve_path,
        [&](carve_hit& hit) {
            std::string const name = carved_name(context.m_carve_path, hit.offset);
            if (name_wanted(context, name)) outcome = process_item(context, out, carved_item(hit, name), separator);
        },
        context.m_check_tally.carve_rejected);
    return scanned && outcome;
}

bool process_unallocated(kito_user_context& context, std::ostream& out, image_volumes const& source, bool separator,
                         bool outcome, content_index& contents, decoded_note const& note)
{
    context.m_check_tally.carving = true;
    std::string const& image = context.m_image_path;
    carve_unallocated(
        source.image(), image,
        [&](carve_hit& hit, ntfs_volume_place const& volume) {
            std::string const name = carved_name(image + "@" + std::to_string(volume.start_sector), hit.offset);
            if (!name_wanted(context, name)) return;
            std::string const digest = sha256_hex(hit.bytes);
            if (contents.seen(digest)) {
                ++context.m_duplicates;
                return;
            }
            contents.add(digest, name);
            image_location place;
            place.present = true;
            place.image_path = image;
            place.partition_offset = volume.offset;
            place.mft_entry_known = false;
            place.source = evidence_source::unallocated;
            outcome = process_item(context, out, carved_item(hit, name, place), separator, note);
        },
        context.m_check_tally.carve_rejected);
    return outcome;
}

int decompress_carve(kito_user_context& context)
{
    make_directory(context.m_decompress_target);
    int status = -1;
    std::uint64_t rejected = 0;
    bool const scanned = carve_file(
        context.m_carve_path,
        [&](carve_hit& hit) {
            if (!name_wanted(context, carved_name(context.m_carve_path, hit.offset))) return;
            if (write_carved_hit(hit, context.m_carve_path, context.m_decompress_target)) status = 0;
        },
        rejected);
    return scanned ? status : -1;
}

void decompress_unallocated(kito_user_context& context, image_volumes const& source, int& status)
{
    std::uint64_t rejected = 0;
    carve_unallocated(
        source.image(), context.m_image_path,
        [&](carve_hit& hit, ntfs_volume_place const&) {
            if (write_carved_hit(hit, context.m_image_path, context.m_decompress_target)) status = 0;
        },
        rejected);
}

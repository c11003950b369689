#include "evidence/file_source.h"

#include "prefetch/decode_chain.h"

evidence_item file_evidence(std::string const& path)
{
    evidence_item item;
    item.display_name = path;
    item.file_base_name = base_name_of(path);
    item.read = [path](decode_buffers& buffers, prefetch_entry& entry) {
        return read_prefetch_file(path, buffers, entry);
    };
    return item;
}

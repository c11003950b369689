#include "prefetch/prefetch_entry.h"

#include <utility>

namespace {

// Lists larger than a large real file needs (a hostile file's millions of
// names) are let go, so that the places of a batch keep little memory.
constexpr std::size_t kept_room = std::size_t{256} << 10;

template <typename item>
std::size_t room(std::vector<item> const& list)
{
    return list.capacity() * sizeof(item);
}
template <typename list>
std::size_t room(list const& map)
{
    return map.room();
}

template <typename list>
void take_room(list& into, list& used)
{
    if (room(used) > kept_room) return;
    used.clear();
    into = std::move(used);
}

} // namespace

prefetch_entry emptied(prefetch_entry&& used)
{
    prefetch_entry fresh;
    take_room(fresh.file_strings, used.file_strings);
    take_room(fresh.file_references, used.file_references);
    take_room(fresh.volume_paths, used.volume_paths);
    take_room(fresh.volume_times, used.volume_times);
    take_room(fresh.volume_serials, used.volume_serials);
    take_room(fresh.volume_records, used.volume_records);
    take_room(fresh.container_kinds, used.container_kinds);
    return fresh;
}

#pragma once
// One file decoded as a run decodes it, without the run's options: the entry,
// the layout label, and what the loader said on standard error.
#include <gtest/gtest.h>

#include <string>

#include "prefetch/decode_chain.h"

struct decoded_file {
    decode_buffers buffers;
    prefetch_entry entry;
    std::string label;
    std::string err;

    bool decode(std::uint8_t const* data, std::size_t size)
    {
        return decode_prefetch_buffer(data, static_cast<std::uint32_t>(size), buffers.inner, entry, label);
    }
    bool load(std::string const& path)
    {
        testing::internal::CaptureStderr();
        bool const ok = load_prefetch_file(path, buffers, entry, label);
        err = testing::internal::GetCapturedStderr();
        return ok;
    }
};

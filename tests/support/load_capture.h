#pragma once
// Loads a file into the context the way a run does, and keeps what it said on
// standard error.
#include <gtest/gtest.h>

#include <string>

#include "driver/kito_user_context.h"
#include "driver/output_entry.h"

inline bool load(std::string const& path, kito_user_context& context, std::string& err)
{
    context.m_file_path = path;
    testing::internal::CaptureStderr();
    bool const ok = load_prefetch_file(context);
    err = testing::internal::GetCapturedStderr();
    return ok;
}

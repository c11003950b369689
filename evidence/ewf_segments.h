#pragma once
// A check of an EWF image's segment files (case.E01, case.E02, ...) before
// the image library reads them: a segment cut short, or one missing from the
// set, reads as blank sectors there, which would pass for an empty disk.
#include <string>

// What is wrong with the segments of the EWF image that begins with
// `first_segment`; empty when they are whole, or when it is no EWF image.
std::string ewf_segments_problem(std::string const& first_segment);

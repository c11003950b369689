#pragma once
#include <ostream>

class kito_user_context;

bool write_bodyfile_report(std::ostream& out, kito_user_context& context);

#pragma once
#include <ostream>

class kito_user_context;

bool write_csv_report(std::ostream& out, kito_user_context& context);

// regcmd.h - `kp120 reg export` and `kp120 reg import`: registry editor
// files in and out of the registry database.
#pragma once

#include <string>
#include <vector>

namespace kp::cli {

// args: what follows "reg" on the command line; language: of the messages
// (0 French, 1 English).  Returns the exit code, after printing any failure
// on standard error.
int run_reg(const std::vector<std::string>& args, const std::string& registry_path, int language);

} // namespace kp::cli

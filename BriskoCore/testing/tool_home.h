#pragma once

// A home laid out as npm, nvm, mise, Homebrew, Cargo, uv and pipx lay out
// theirs, with the traps each of them sets: aliases, scopes, linked packages,
// relative links, a login shell run from a keg, a crate whose binary became
// a link. The tool inventory's and the tool remover's tests share it.

#include "testing/temporary_directory.h"
#include "tools/tool_environment.h"

namespace brisko::testing {

void layOutToolHome(const TemporaryDirectory& home);

// The home's environment: system prefixes under home/system, the login
// shell Homebrew's fish.
ToolEnvironment toolHomeEnvironment(const TemporaryDirectory& home);

}  // namespace brisko::testing

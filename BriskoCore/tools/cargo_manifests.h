#pragma once

// Cargo's two records of what `cargo install` put in place: .crates2.json
// and .crates.toml in the Cargo home. Once a crate's binaries are gone, its
// key leaves both, so that a later `cargo install` doesn't think it is there.
// A file that is missing or isn't what Cargo writes is left alone; every
// write is atomic.

#include <string>

namespace brisko {

struct CargoManifests {
  static void removeKey(const std::string& cargoHome, const std::string& key);

  // .crates.toml's text without the key's entry: the line that begins with
  // the quoted key and "=" (or " ="), through the closing "]" when Cargo
  // wrote the list of binaries over several lines.
  static std::string tomlWithoutKey(const std::string& text, const std::string& key);
};

}  // namespace brisko

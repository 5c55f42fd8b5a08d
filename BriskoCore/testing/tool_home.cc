#include "testing/tool_home.h"

#include <sys/stat.h>

#include <string>
#include <vector>

namespace brisko::testing {
namespace {

void writeReceipt(const TemporaryDirectory& home, const std::string& keg, bool onRequest,
                  const std::vector<std::string>& dependencies) {
  std::string list;
  for (const auto& dependency : dependencies)
    list += (list.empty() ? "" : ",") + std::string("{\"full_name\":\"homebrew/core/") +
            dependency + "\"}";
  home.writeFile(".linuxbrew/Cellar/" + keg + "/INSTALL_RECEIPT.json",
                 "{\"installed_on_request\":" + std::string(onRequest ? "true" : "false") +
                     ",\"time\":1700000000,\"runtime_dependencies\":[" + list + "]}");
}

}  // namespace

void layOutToolHome(const TemporaryDirectory& home) {
  // nvm, whose alias "20" picks 20.11.0; npm and corepack are the runtime's.
  const std::string node20 = ".nvm/versions/node/v20.11.0";
  home.writeFile(".nvm/alias/default", "20\n");
  home.writeFile(node20 + "/lib/node_modules/typescript/package.json",
                 R"({"name":"typescript","version":"5.3.3"})");
  home.writeFile(node20 + "/lib/node_modules/typescript/bin/tsc");
  home.writeFile(node20 + "/lib/node_modules/npm/package.json", R"({"version":"10.2.4"})");
  home.writeFile(node20 + "/lib/node_modules/corepack/package.json", "{}");
  home.writeFile(node20 + "/lib/node_modules/@acme/tool/package.json",
                 R"({"name":"@acme/tool","version":"1.0.0"})");
  home.writeFile(node20 + "/lib/node_modules/.package-lock.json", "{}");
  home.writeFile(node20 + "/lib/node_modules/broken/package.json", "{\"name\": ");
  home.writeFile("src/local-tool/package.json", R"({"name":"local-tool","version":"0.0.1"})");
  home.makeSymlink(node20 + "/lib/node_modules/local-tool", home / "src/local-tool");
  home.makeSymlink(node20 + "/bin/tsc", "../lib/node_modules/typescript/bin/tsc");
  home.makeSymlink(node20 + "/bin/tsserver", "../lib/node_modules/typescript/bin/tsserver");
  home.makeSymlink(node20 + "/bin/acme", "../lib/node_modules/@acme/tool/cli.js");
  home.makeSymlink(node20 + "/bin/npm", "../lib/node_modules/npm/bin/npm-cli.js");
  home.makeSymlink(node20 + "/bin/elsewhere", "/usr/bin/env");
  home.makeDirectory(".nvm/versions/node/v18.19.0/lib/node_modules");

  // mise, with an alias link that must not list the version twice.
  home.writeFile(".local/share/mise/installs/node/21.6.1/lib/node_modules/eslint/package.json",
                 R"({"name":"eslint","version":"8.56.0"})");
  home.makeSymlink(".local/share/mise/installs/node/21", "21.6.1");

  // Homebrew in the home: fish runs the login shell; gettext is needed by
  // two formulae, pcre2 by fish alone; jq is asked for and needed by yq.
  home.writeFile(".linuxbrew/bin/brew", "#!/bin/sh\n");
  ::chmod((home / ".linuxbrew/bin/brew").c_str(), 0755);
  writeReceipt(home, "fish/4.0", true, {"pcre2", "gettext", "jq", "ghost"});
  home.writeFile(".linuxbrew/Cellar/fish/4.0/bin/fish");
  home.makeSymlink(".linuxbrew/bin/fish", "../Cellar/fish/4.0/bin/fish");
  writeReceipt(home, "fish-extra/1.0", true, {"gettext"});
  writeReceipt(home, "pcre2/10.42", false, {});
  writeReceipt(home, "gettext/0.22", false, {});
  writeReceipt(home, "jq/1.7", true, {});
  writeReceipt(home, "yq/4.1", true, {"jq"});
  writeReceipt(home, "multi/1.9.2", true, {});
  writeReceipt(home, "multi/1.10.0", true, {});
  home.makeDirectory(".linuxbrew/Cellar/multi/2.0");  // no receipt: not a keg
  writeReceipt(home, "pinned/2.0", true, {});
  writeReceipt(home, "pinned/3.0", true, {});
  home.makeSymlink(".linuxbrew/opt/pinned", "../Cellar/pinned/2.0");
  home.makeSymlink(".linuxbrew/bin/pinned", "../Cellar/pinned/3.0/bin/pinned");

  // Cargo: a crate of two binaries, one since replaced by a link; a key of
  // one word; a crate whose binary is gone.
  home.writeFile(".cargo/.crates2.json", R"json({"installs":{
      "ripgrep 14.1.0 (registry+https://github.com/rust-lang/crates.io-index)":{"bins":["rg"]},
      "pair 0.1.0 (path+file:///src/pair)":{"bins":["pair-b","pair-a"]},
      "oneword":{"bins":["rg"]},
      "gone 1.0.0 (registry+x)":{"bins":["gone"]}}})json");
  home.writeFile(".cargo/.crates.toml",
                 "[v1]\n"
                 "\"ripgrep 14.1.0 (registry+https://github.com/rust-lang/crates.io-index)\" = "
                 "[\"rg\"]\n"
                 "\"pair 0.1.0 (path+file:///src/pair)\" = [\n    \"pair-a\",\n    \"pair-b\",\n]\n"
                 "\"pair 0.1.0 (path+file:///src/pair)2\"=[\"p2\"]\n"
                 "\n");
  home.writeFile(".cargo/bin/rg", std::string(10000, 'x'));
  home.writeFile(".cargo/bin/pair-a");
  home.makeSymlink(".cargo/bin/pair-b", home / ".cargo/bin/pair-a");

  // pipx, its venvs also reached through a link; uv with a dist-info.
  home.writeFile(".local/share/pipx/venvs/black/pipx_metadata.json",
                 R"({"main_package":{"package":"black","package_version":"24.2.0"}})");
  home.writeFile(".local/share/pipx/venvs/black/bin/black");
  home.makeSymlink(".local/pipx", home / ".local/share/pipx");
  home.makeSymlink(".local/bin/black", "../share/pipx/venvs/black/bin/black");
  home.makeDirectory(
      ".local/share/uv/tools/ruff/lib/python3.11/site-packages/ruff-0.3.0.dist-info");
  home.writeFile(".local/share/uv/tools/ruff/bin/ruff");
  home.makeSymlink(".local/bin/ruff", home / ".local/share/uv/tools/ruff/bin/ruff");
  home.makeSymlink(".local/bin/stray", "/usr/bin/env");
}

ToolEnvironment toolHomeEnvironment(const TemporaryDirectory& home) {
  ToolEnvironment environment;
  environment.home = home.path();
  environment.systemRoot = home / "system";
  environment.loginShell = home / ".linuxbrew/bin/fish";
  return environment;
}

}  // namespace brisko::testing

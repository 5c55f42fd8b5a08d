#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "testing/subprocess.h"

namespace brisko::testing {

// Runs `argv` under a private D-Bus session bus (`dbus-run-session`), so that
// `gio` and GIO in a child find the gvfs daemons (the trash:// backend) that
// the bus starts on demand; they go when the bus goes. Set HOME and
// XDG_DATA_HOME in `options`: the daemons read them once, at their start.
ProcessResult runInSessionBus(const std::vector<std::string>& argv,
                              const ProcessOptions& options = {});

// Starts the running test binary again in such a session, running only the
// tests that `gtestFilter` picks. GLib reads HOME and XDG_DATA_HOME once per
// process, so a test that trashes into a temporary home does it in a child.
ProcessResult runTestsInSessionBus(std::string_view gtestFilter, const ProcessOptions& options);

}  // namespace brisko::testing

// process_handlers.cpp - handlers of the process functions.
#include <array>

#include "component/bind.h"
#include "component/call.h"
#include "system/processes.h"

namespace kp::handlers {

namespace {

using system::kExeDontWait;
using Text = std::u16string_view;

// Without a wait mode, ExeRun does not wait.  The window mode is accepted
// and has no effect on this platform; so is the text of the fourth form.
int32_t run(Text line, CXError& e) {
    return system::exe_run(line, kExeDontWait, e);
}
int32_t run_mode(Text line, int32_t, CXError& e) {
    return system::exe_run(line, kExeDontWait, e);
}
int32_t run_wait(Text line, int32_t, int32_t wait, CXError& e) {
    return system::exe_run(line, wait, e);
}
int32_t run_wait_text(Text line, int32_t, int32_t wait, Text, CXError& e) {
    return system::exe_run(line, wait, e);
}

template <std::size_t N> std::u16string list(const std::array<int32_t, N>& columns, CXError& e) {
    return system::exe_list_process(columns, e);
}

} // namespace

KP_BIND(ExeRun_1, run)
KP_BIND(ExeRun_2, run_mode)
KP_BIND(ExeRun_3, run_wait)
KP_BIND(ExeRun_4, run)
KP_BIND(ExeRun_5, run_mode)
KP_BIND(ExeRun_6, run_wait)
KP_BIND(ExeRun_7, run_wait_text)

KP_BIND(ShellExecute_1,
        [](Text document, CXError& e) { return system::shell_execute(document, std::nullopt, e); })
KP_BIND(ShellExecute_2,
        [](Text document, Text verb, CXError& e) { return system::shell_execute(document, verb, e); })

KP_BIND(ExeRunning_1, [](CXError& e) { return system::exe_running(std::nullopt, e); })
KP_BIND(ExeRunning_2, [](Text program, CXError& e) { return system::exe_running(program, e); })

KP_BIND(ExeTerminate_1, [](Text program, CXError& e) { return system::exe_terminate(program, e); })
KP_BIND(ExeTerminate_2, [](int32_t pid, CXError& e) { return system::exe_terminate(pid, e); })

// Without selectors, the list shows the file names only.
KP_BIND(ExeListProcess_1, [](CXError& e) { return list(std::array<int32_t, 1>{0}, e); })
KP_BIND(ExeListProcess_2, [](int32_t a, CXError& e) { return list(std::array{a}, e); })
KP_BIND(ExeListProcess_3, [](int32_t a, int32_t b, CXError& e) { return list(std::array{a, b}, e); })
KP_BIND(ExeListProcess_4, [](int32_t a, int32_t b, int32_t c, CXError& e) {
    return list(std::array{a, b, c}, e);
})
KP_BIND(ExeListProcess_5, [](int32_t a, int32_t b, int32_t c, int32_t d, CXError& e) {
    return list(std::array{a, b, c, d}, e);
})
KP_BIND(ExeListProcess_6, [](int32_t a, int32_t b, int32_t c, int32_t d, int32_t f, CXError& e) {
    return list(std::array{a, b, c, d, f}, e);
})

KP_BIND(ExeListDLL_1, system::exe_list_dll)

KP_BIND(ExeInfo_1, [](Text key, CXError& e) { return system::exe_info(key, std::nullopt, e); })
KP_BIND(ExeInfo_2, [](Text key, Text path, CXError& e) { return system::exe_info(key, path, e); })

} // namespace kp::handlers

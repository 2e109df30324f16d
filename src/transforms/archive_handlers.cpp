// archive_handlers.cpp - the handlers of _zipCreate_old and _zipOpen_old.
#include "component/bind.h"
#include "transforms/archive.h"

namespace kp::handlers {

KP_BIND(_zipCreate_old_1, transforms::zip_create_old)
KP_BIND(_zipOpen_old_1, transforms::zip_open_old)

} // namespace kp::handlers

// table_controls.h - the host's table controls: what a program's table
// control holds (kind, columns, rows, selection, totals), the registry that
// turns them into the handles passed as arguments of type 0x39, and the
// table interface of the services block through which the component reads
// them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "host.h"
#include "kp120/vm.h"

namespace kp::host {

// The registered controls of one host.
class TableControls {
  public:
    uintptr_t add(std::shared_ptr<TableControl> control);
    void remove(uintptr_t handle);
    std::shared_ptr<TableControl> find(uintptr_t handle) const;

  private:
    mutable std::mutex mutex_;
    std::map<uintptr_t, std::shared_ptr<TableControl>> controls_;
    uintptr_t next_ = 0x39000001u;
};

// The operations of the interface the services slot `table_interface`
// returns (with self null: each host sets its `vm` pointer there); they find
// the controls of that host through table_controls_of (host.cpp).
const kp_table_interface* host_table_interface();
TableControls& table_controls_of(void* vm);

} // namespace kp::host

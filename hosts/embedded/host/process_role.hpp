// Which side of the fork this process is on, and who it is.
#pragma once

#include "hosts/embedded/system/process_identity.hpp"

namespace varnholt::embedded {

// Made in the parent. A fork copies it; the child enters its own role before it works.
class ProcessRole {
 public:
  [[nodiscard]] bool is_child() const noexcept { return is_child_; }
  [[nodiscard]] const ProcessIdentity& identity() const noexcept { return identity_; }

  void enter_child() {
    is_child_ = true;
    identity_ = forked_identity(identity_);
  }

 private:
  ProcessIdentity identity_ = own_identity();
  bool is_child_ = false;
};

}  // namespace varnholt::embedded

// Writes of a store that go into its file together, because a transaction of their own costs each
// of them more than it writes.
#pragma once

namespace varnholt::embedded {

// Between begin_gathering() and end_gathering() what a call of the store recorded is in the file
// only after the next put_in_file(): a kill -9 takes with it what was not put there. Who gathers
// therefore puts it there before any other process can learn of it. The store itself reads what it
// has gathered. A call that fails leaves nothing of itself behind, and all that was gathered before
// it.
//
// All may throw StoreError, as the calls that are gathered would have. When the machine refuses
// (StoreDiskError), what was gathered since the last put_in_file() may be lost. None is to be
// called in work under the store's lock (RunStore::under_lock).
class GatheredWrites {
 public:
  GatheredWrites() = default;
  GatheredWrites(const GatheredWrites&) = delete;
  GatheredWrites& operator=(const GatheredWrites&) = delete;
  virtual ~GatheredWrites() = default;

  virtual void begin_gathering() = 0;
  // Gives up the write lock as well, which another process may be waiting for.
  virtual void put_in_file() = 0;
  // Puts it in the file. From here on each call does so again, also after an error.
  virtual void end_gathering() = 0;
};

}  // namespace varnholt::embedded

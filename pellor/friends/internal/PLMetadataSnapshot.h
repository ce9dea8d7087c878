// The metadata of all persons at one moment.
#pragma once

#include "pellor/friends/detail/PLPersonChanges.h"

namespace pellor {

/// While it lives, a stored form that a person takes over is compared with the metadata that the person had when it was
/// made. So an edit of metadata that another thread makes meanwhile stays, on top of what is stored. One at a time,
/// main queue.
class PLMetadataSnapshot {
 public:
  /// Behind all edits of metadata that are queued.
  explicit PLMetadataSnapshot(PLPersonChanges& changes);
  ~PLMetadataSnapshot();
  PLMetadataSnapshot(const PLMetadataSnapshot&) = delete;
  PLMetadataSnapshot& operator=(const PLMetadataSnapshot&) = delete;

 private:
  PLPersonChanges& _changes;
};

}  // namespace pellor

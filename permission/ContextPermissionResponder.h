#pragma once

namespace KR {

/// What the host is told of by ContextPermission, which it outlives. Implemented, owned and deleted
/// by the host.
class ContextPermissionResponder {
public:
    virtual ~ContextPermissionResponder() = default;

    /// The context has changed: what may run may be another. Comes on the platform's threads with
    /// no lock held, so that it may call ContextPermission back, for example to refresh the cache.
    virtual void onContextChanged() = 0;
};

}  // namespace KR

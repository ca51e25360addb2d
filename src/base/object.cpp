#include "base/object.h"

#include "base/diag.h"

namespace marl {

bool detail::check_object(bool given, const ObjectCommon* common, const char* operation, Need need) {
    if (!given) {
        diag::err("%s: thiz", operation);
        return false;
    }
    if (need == Need::Object) return true;
    if (common == nullptr) {
        diag::err("%s: thiz->priv", operation);
        return false;
    }
    if (need == Need::Descriptor && common->fd < 0) {
        diag::err("%s: priv->common.fd ", operation);
        return false;
    }
    return true;
}

void free_object(ObjectKind& kind) {
    free(kind.record);
    kind.record = nullptr;
    if (kind.has_holders) {
        *static_cast<void**>(kind.object) = nullptr;  // its `priv`
    } else {
        free(kind.object);
        kind.object = nullptr;
    }
}

void retire_object(ObjectKind& kind) {
    kind.has_holders = true;
    free_object(kind);
}

int add_reference(ObjectCommon& common) {
    if (common.refcount < 0) return -1;
    ++common.refcount;
    return 0;
}

bool drop_reference(ObjectCommon& common) {
    if (common.refcount < 1) return false;
    return --common.refcount == 0;
}

}  // namespace marl

#include "base/object.h"

#include "base/diag.h"

namespace marl {
namespace {

// Written by the create and release operations of the objects; no lock, as the objects have none.
struct {
    uint32_t created = 0;
} constinit g_objects;

}  // namespace

int detail::check_object(bool given, const ObjectCommon* common, const char* operation, Need need) {
    if (!given) {
        diag::err("%s: thiz", operation);
        return -1;
    }
    if (need == Need::Object) return 0;
    if (common == nullptr) {
        diag::err("%s: thiz->priv", operation);
        return -2;
    }
    if (need == Need::Descriptor && common->fd < 0) {
        diag::err("%s: priv->common.fd ", operation);
        return -3;
    }
    return 0;
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

bool object_exists(uint32_t kind) { return (g_objects.created & kind) != 0; }

void mark_object(uint32_t kind, bool exists) {
    g_objects.created = exists ? g_objects.created | kind : g_objects.created & ~kind;
}

}  // namespace marl

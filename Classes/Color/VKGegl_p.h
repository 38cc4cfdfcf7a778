// Internal: the library's one GEGL set-up and the conversions between filter values and GEGL
// operation properties. Not installed.
#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <gegl.h>

// Initialises GEGL once per process (thread-safe) and registers the library's own operations.
void vkGeglInit();

// The name of the library's operation that runs a VKImage::PointFunction.
inline constexpr char kVKPointFunctionOperation[] = "vk:point-function";

// Sets `value` on the property of `node` that `param` describes, converted to the property's
// type and clamped to its range; false (nothing set) when the value does not convert.
bool vkGeglSetProperty(GeglNode *node, GParamSpec *param, const QVariant &value);
// Sets each entry of `properties` that the node's operation has; false when one is unknown or
// does not convert (the others are still set).
bool vkGeglSetProperties(GeglNode *node, const QString &operation, const QVariantMap &properties);
// The attribute dictionary of a property: type, range, default and description. Empty for
// property types a filter cannot take (buffers, pointers, objects).
QVariantMap vkGeglAttributesForParam(GParamSpec *param);

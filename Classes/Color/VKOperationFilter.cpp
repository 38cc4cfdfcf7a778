#include "Color/VKOperationFilter.h"

#include "Color/VKGegl_p.h"
#include "Color/VKImage.h"
#include "Foundation/VKClassRegistry.h"

#include <QColor>
#include <QHash>

#include <mutex>

VK_REGISTER_CLASS(VKOperationFilter, VKFilter)

namespace {

const QString kAuxImageKey = QStringLiteral("inputAuxImage");

// What a filter needs to know of an operation, read once per operation name.
struct OperationInfo
{
    bool hasInput = false;
    bool hasAux = false;
    QStringList keys; // properties a filter can set, in the operation's order
    QHash<QString, QVariantMap> attributes;
};

struct OperationCache
{
    std::mutex mutex;
    QHash<QString, std::shared_ptr<const OperationInfo>> infos;
    QStringList names;
    bool namesRead = false;
};

OperationCache &operationCache()
{
    static OperationCache cache;
    return cache;
}

std::shared_ptr<const OperationInfo> operationInfo(const QString &operation)
{
    vkGeglInit();
    OperationCache &cache = operationCache();
    {
        std::lock_guard lock(cache.mutex);
        if (auto found = cache.infos.value(operation))
            return found;
    }
    const QByteArray name = operation.toUtf8();
    if (operation.isEmpty() || !gegl_has_operation(name.constData()))
        return nullptr;
    auto info = std::make_shared<OperationInfo>();
    // The pads are only known to a node of the operation.
    GeglNode *graph = gegl_node_new();
    GeglNode *node = gegl_node_new_child(graph, "operation", name.constData(), nullptr);
    info->hasInput = gegl_node_has_pad(node, "input");
    info->hasAux = gegl_node_has_pad(node, "aux");
    g_object_unref(graph);
    guint count = 0;
    GParamSpec **params = gegl_operation_list_properties(name.constData(), &count);
    for (guint i = 0; i < count; ++i) {
        const QVariantMap attributes = vkGeglAttributesForParam(params[i]);
        if (attributes.isEmpty())
            continue;
        const QString key = QString::fromUtf8(params[i]->name);
        info->keys.append(key);
        info->attributes.insert(key, attributes);
    }
    g_free(params);
    std::lock_guard lock(cache.mutex);
    cache.infos.insert(operation, info);
    return info;
}

} // namespace

QVariantMap vkGeglAttributesForParam(GParamSpec *param)
{
    QVariantMap a;
    const GType type = param->value_type;
    GValue defaultValue = G_VALUE_INIT;
    g_value_init(&defaultValue, type);
    g_param_value_set_default(param, &defaultValue);
    if (type == G_TYPE_DOUBLE) {
        auto *s = G_PARAM_SPEC_DOUBLE(param);
        a.insert(VKAttributeType, VKAttributeTypeDouble);
        a.insert(VKAttributeMin, s->minimum);
        a.insert(VKAttributeMax, s->maximum);
        a.insert(VKAttributeDefault, g_value_get_double(&defaultValue));
    } else if (type == G_TYPE_FLOAT) {
        auto *s = G_PARAM_SPEC_FLOAT(param);
        a.insert(VKAttributeType, VKAttributeTypeDouble);
        a.insert(VKAttributeMin, double(s->minimum));
        a.insert(VKAttributeMax, double(s->maximum));
        a.insert(VKAttributeDefault, double(g_value_get_float(&defaultValue)));
    } else if (type == G_TYPE_INT) {
        auto *s = G_PARAM_SPEC_INT(param);
        a.insert(VKAttributeType, VKAttributeTypeInteger);
        a.insert(VKAttributeMin, s->minimum);
        a.insert(VKAttributeMax, s->maximum);
        a.insert(VKAttributeDefault, g_value_get_int(&defaultValue));
    } else if (type == G_TYPE_UINT) {
        auto *s = G_PARAM_SPEC_UINT(param);
        a.insert(VKAttributeType, VKAttributeTypeInteger);
        a.insert(VKAttributeMin, s->minimum);
        a.insert(VKAttributeMax, s->maximum);
        a.insert(VKAttributeDefault, g_value_get_uint(&defaultValue));
    } else if (type == G_TYPE_BOOLEAN) {
        a.insert(VKAttributeType, VKAttributeTypeBoolean);
        a.insert(VKAttributeDefault, bool(g_value_get_boolean(&defaultValue)));
    } else if (type == G_TYPE_STRING || G_IS_PARAM_SPEC_STRING(param)) {
        a.insert(VKAttributeType, VKAttributeTypeString);
        if (const gchar *text = g_value_get_string(&defaultValue))
            a.insert(VKAttributeDefault, QString::fromUtf8(text));
    } else if (G_TYPE_IS_ENUM(type)) {
        auto *enumClass = static_cast<GEnumClass *>(g_type_class_ref(type));
        QStringList names;
        for (guint i = 0; i < enumClass->n_values; ++i)
            names.append(QString::fromUtf8(enumClass->values[i].value_nick));
        const GEnumValue *value = g_enum_get_value(enumClass, g_value_get_enum(&defaultValue));
        a.insert(VKAttributeType, VKAttributeTypeEnum);
        a.insert(VKAttributeEnumNames, names);
        if (value)
            a.insert(VKAttributeDefault, QString::fromUtf8(value->value_nick));
        g_type_class_unref(enumClass);
    } else if (type == GEGL_TYPE_COLOR) {
        a.insert(VKAttributeType, VKAttributeTypeColor);
        if (auto *color = static_cast<GeglColor *>(g_value_get_object(&defaultValue))) {
            double rgba[4] = {0, 0, 0, 0};
            gegl_color_get_pixel(color, babl_format("R'G'B'A double"), rgba);
            a.insert(VKAttributeDefault,
                     QVariant::fromValue(QColor::fromRgbF(float(rgba[0]), float(rgba[1]),
                                                          float(rgba[2]), float(rgba[3]))));
        }
    }
    g_value_unset(&defaultValue);
    if (a.isEmpty())
        return a;
    if (const gchar *blurb = g_param_spec_get_blurb(param))
        a.insert(VKAttributeDescription, QString::fromUtf8(blurb));
    return a;
}

VKOperationFilter::VKOperationFilter() : VKFilter(QString()) {}

std::shared_ptr<VKOperationFilter> VKOperationFilter::filterWithOperation(const QString &operation)
{
    auto filter = std::make_shared<VKOperationFilter>();
    if (!filter->setUpForName(operation))
        return nullptr;
    return filter;
}

bool VKOperationFilter::hasOperation(const QString &operation)
{
    if (operation.isEmpty())
        return false;
    vkGeglInit();
    return gegl_has_operation(operation.toUtf8().constData());
}

QStringList VKOperationFilter::operationNames()
{
    vkGeglInit();
    // GEGL's list is fixed once its modules are loaded, except for operations that plug-ins
    // register later, so it is read afresh each time.
    guint count = 0;
    gchar **names = gegl_list_operations(&count);
    QStringList list;
    list.reserve(int(count));
    for (guint i = 0; i < count; ++i)
        list.append(QString::fromUtf8(names[i]));
    g_free(names);
    list.sort();
    return list;
}

bool VKOperationFilter::setUpForName(const QString &name)
{
    // An operation filter is set up once, with its operation.
    if (!this->name().isEmpty())
        return name == this->name();
    const std::shared_ptr<const OperationInfo> info = operationInfo(name);
    if (!info)
        return false;
    setName(name);
    if (info->hasInput)
        declareInputKey(VKFilterInputImageKey, {{VKAttributeType, VKAttributeTypeImage}});
    if (info->hasAux)
        declareInputKey(kAuxImageKey, {{VKAttributeType, VKAttributeTypeImage}});
    for (const QString &key : info->keys)
        declareInputKey(key, info->attributes.value(key));
    return true;
}

VKImage VKOperationFilter::outputImage()
{
    const std::shared_ptr<const OperationInfo> info = operationInfo(name());
    if (!info)
        return {};
    QVariantMap properties;
    for (const QString &key : info->keys) {
        const QVariant value = inputValue(key);
        if (value.isValid())
            properties.insert(key, value);
    }
    if (!info->hasInput)
        return VKImage::imageWithOperation(name(), properties);
    const VKImage input = inputImage(VKFilterInputImageKey);
    if (input.isNull())
        return {};
    QList<std::pair<QString, VKImage>> inputs;
    if (info->hasAux) {
        const VKImage aux = inputImage(kAuxImageKey);
        if (!aux.isNull())
            inputs.append({QStringLiteral("aux"), aux});
    }
    return input.imageByApplyingOperation(name(), properties, inputs);
}

QString VKOperationFilter::classNameForCoder() const
{
    return QStringLiteral("VKOperationFilter");
}

#include "Color/VKImage.h"

#include "Color/VKGegl_p.h"
#include "Color/VKTriple.h"

#include <QColor>
#include <QImage>

#include <gegl-plugin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

// ---- The point-function operation -------------------------------------------------------------
// A point filter over "RGBA float" that calls a VKImage::PointFunction; the function is owned by
// the image's recipe, which outlives every render of it.
extern "C" {
typedef struct
{
    GeglOperationPointFilter parent_instance;
    gpointer function;
} VKPointFunctionOp;

typedef struct
{
    GeglOperationPointFilterClass parent_class;
} VKPointFunctionOpClass;
}

G_DEFINE_TYPE(VKPointFunctionOp, vk_point_function_op, GEGL_TYPE_OPERATION_POINT_FILTER)

namespace {

enum { kPropFunction = 1 };

void pointSetProperty(GObject *object, guint id, const GValue *value, GParamSpec *param)
{
    auto *self = reinterpret_cast<VKPointFunctionOp *>(object);
    if (id == kPropFunction)
        self->function = g_value_get_pointer(value);
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, param);
}

void pointGetProperty(GObject *object, guint id, GValue *value, GParamSpec *param)
{
    auto *self = reinterpret_cast<VKPointFunctionOp *>(object);
    if (id == kPropFunction)
        g_value_set_pointer(value, self->function);
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, param);
}

void pointPrepare(GeglOperation *operation)
{
    const Babl *format = babl_format("RGBA float");
    gegl_operation_set_format(operation, "input", format);
    gegl_operation_set_format(operation, "output", format);
}

gboolean pointProcess(GeglOperation *operation, void *in, void *out, glong samples,
                      const GeglRectangle *, gint)
{
    auto *self = reinterpret_cast<VKPointFunctionOp *>(operation);
    if (in != out)
        std::memcpy(out, in, size_t(samples) * 4 * sizeof(float));
    if (self->function)
        (*static_cast<VKImage::PointFunction *>(self->function))(static_cast<float *>(out),
                                                                 samples);
    return TRUE;
}

} // namespace

static void vk_point_function_op_init(VKPointFunctionOp *self)
{
    self->function = nullptr;
}

static void vk_point_function_op_class_init(VKPointFunctionOpClass *klass)
{
    GObjectClass *objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = pointSetProperty;
    objectClass->get_property = pointGetProperty;
    g_object_class_install_property(
        objectClass, kPropFunction,
        g_param_spec_pointer("function", "Function", "The pixel function",
                             GParamFlags(int(G_PARAM_READWRITE) | int(GEGL_PARAM_PAD_INPUT))));
    GeglOperationClass *operationClass = GEGL_OPERATION_CLASS(klass);
    operationClass->prepare = pointPrepare;
    // Pixels are independent, so GEGL may split the work over its threads.
    operationClass->threaded = TRUE;
    GEGL_OPERATION_POINT_FILTER_CLASS(klass)->process = pointProcess;
    gegl_operation_class_set_keys(operationClass, "name", kVKPointFunctionOperation, "categories",
                                  "hidden", "description",
                                  "Runs a function of the host over the pixels", nullptr);
}

// ---- GEGL set-up and property conversion ------------------------------------------------------

void vkGeglInit()
{
    static std::once_flag once;
    std::call_once(once, [] {
        gegl_init(nullptr, nullptr);
        g_type_class_unref(g_type_class_ref(vk_point_function_op_get_type()));
    });
}

namespace {

bool variantToDouble(const QVariant &value, double *out)
{
    if (!value.isValid() || value.isNull())
        return false;
    const int type = value.metaType().id();
    if (type == QMetaType::QString || type == QMetaType::QByteArray)
        return false;
    bool ok = false;
    *out = value.toDouble(&ok);
    return ok;
}

const Babl *linearRGBAFormat()
{
    return babl_format("RGBA double");
}

// QColor is sRGB-encoded; an RGB triple holds linear components.
GeglColor *colorFromVariant(const QVariant &value)
{
    double rgba[4];
    const Babl *format = nullptr;
    if (value.metaType() == QMetaType::fromType<QColor>()) {
        const QColor color = value.value<QColor>();
        if (!color.isValid())
            return nullptr;
        const QColor rgb = color.toRgb();
        rgba[0] = rgb.redF();
        rgba[1] = rgb.greenF();
        rgba[2] = rgb.blueF();
        rgba[3] = rgb.alphaF();
        format = babl_format("R'G'B'A double");
    } else if (const std::optional<VKTriple> found = VKTriple::fromVariant(value)) {
        const VKTriple triple = *found;
        if (triple.tripleClass() != VKTripleClass::RGB &&
            triple.tripleClass() != VKTripleClass::Triple)
            return nullptr;
        rgba[0] = triple.x();
        rgba[1] = triple.y();
        rgba[2] = triple.z();
        rgba[3] = 1.0;
        format = linearRGBAFormat();
    } else {
        return nullptr;
    }
    GeglColor *color = gegl_color_new(nullptr);
    gegl_color_set_pixel(color, format, rgba);
    return color;
}

} // namespace

bool vkGeglSetProperty(GeglNode *node, GParamSpec *param, const QVariant &value)
{
    const GType type = param->value_type;
    GValue gvalue = G_VALUE_INIT;
    double number = 0;
    if (type == G_TYPE_DOUBLE || type == G_TYPE_FLOAT) {
        if (!variantToDouble(value, &number) || std::isnan(number))
            return false;
        if (type == G_TYPE_DOUBLE) {
            auto *s = G_PARAM_SPEC_DOUBLE(param);
            g_value_init(&gvalue, G_TYPE_DOUBLE);
            g_value_set_double(&gvalue, std::clamp(number, s->minimum, s->maximum));
        } else {
            auto *s = G_PARAM_SPEC_FLOAT(param);
            g_value_init(&gvalue, G_TYPE_FLOAT);
            g_value_set_float(&gvalue, std::clamp(float(number), s->minimum, s->maximum));
        }
    } else if (type == G_TYPE_INT || type == G_TYPE_UINT) {
        if (!variantToDouble(value, &number) || !std::isfinite(number))
            return false;
        if (type == G_TYPE_INT) {
            auto *s = G_PARAM_SPEC_INT(param);
            g_value_init(&gvalue, G_TYPE_INT);
            g_value_set_int(&gvalue, int(std::clamp(std::llround(number), qint64(s->minimum),
                                                    qint64(s->maximum))));
        } else {
            auto *s = G_PARAM_SPEC_UINT(param);
            g_value_init(&gvalue, G_TYPE_UINT);
            g_value_set_uint(&gvalue, guint(std::clamp(std::llround(number), qint64(s->minimum),
                                                       qint64(s->maximum))));
        }
    } else if (type == G_TYPE_BOOLEAN) {
        if (value.metaType().id() == QMetaType::Bool) {
            g_value_init(&gvalue, G_TYPE_BOOLEAN);
            g_value_set_boolean(&gvalue, value.toBool());
        } else if (variantToDouble(value, &number)) {
            g_value_init(&gvalue, G_TYPE_BOOLEAN);
            g_value_set_boolean(&gvalue, number != 0);
        } else {
            return false;
        }
    } else if (type == G_TYPE_STRING || G_IS_PARAM_SPEC_STRING(param)) {
        if (value.metaType().id() != QMetaType::QString)
            return false;
        g_value_init(&gvalue, G_TYPE_STRING);
        g_value_set_string(&gvalue, value.toString().toUtf8().constData());
    } else if (G_TYPE_IS_ENUM(type)) {
        auto *enumClass = static_cast<GEnumClass *>(g_type_class_ref(type));
        const GEnumValue *found = nullptr;
        if (value.metaType().id() == QMetaType::QString) {
            const QByteArray nick = value.toString().toUtf8();
            found = g_enum_get_value_by_nick(enumClass, nick.constData());
            if (!found)
                found = g_enum_get_value_by_name(enumClass, nick.constData());
        } else if (variantToDouble(value, &number)) {
            found = g_enum_get_value(enumClass, int(number));
        }
        if (found) {
            g_value_init(&gvalue, type);
            g_value_set_enum(&gvalue, found->value);
        }
        g_type_class_unref(enumClass);
        if (!found)
            return false;
    } else if (type == GEGL_TYPE_COLOR) {
        GeglColor *color = colorFromVariant(value);
        if (!color)
            return false;
        g_value_init(&gvalue, GEGL_TYPE_COLOR);
        g_value_take_object(&gvalue, color);
    } else {
        return false;
    }
    gegl_node_set_property(node, param->name, &gvalue);
    g_value_unset(&gvalue);
    return true;
}

bool vkGeglSetProperties(GeglNode *node, const QString &operation, const QVariantMap &properties)
{
    if (properties.isEmpty())
        return true;
    guint count = 0;
    const QByteArray name = operation.toUtf8();
    GParamSpec **params = gegl_operation_list_properties(name.constData(), &count);
    bool allSet = true;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
        GParamSpec *param = nullptr;
        const QByteArray key = it.key().toUtf8();
        for (guint i = 0; i < count; ++i) {
            if (key == params[i]->name)
                param = params[i];
        }
        if (!param || !vkGeglSetProperty(node, param, it.value()))
            allSet = false;
    }
    g_free(params);
    return allSet;
}

// ---- VKImage ----------------------------------------------------------------------------------

namespace {

// GEGL graphs are not safe to process from two threads at once (recipes share upstream nodes,
// and processing a node caches into it), so renders take turns; each render still spreads its
// work over GEGL's own worker threads.
std::mutex &renderMutex()
{
    static std::mutex mutex;
    return mutex;
}

} // namespace

struct VKImage::Private
{
    GeglNode *graph = nullptr; // owns `node`
    GeglNode *node = nullptr;
    GeglNode *foreignNode = nullptr; // a node handed over by the caller (own reference)
    QList<VKImage> inputs;           // keeps the nodes this one reads alive
    std::unique_ptr<PointFunction> function;

    ~Private()
    {
        if (graph)
            g_object_unref(graph);
        if (foreignNode)
            g_object_unref(foreignNode);
    }
    GeglNode *output() const { return foreignNode ? foreignNode : node; }
};

VKImage::VKImage() = default;

VKImage::VKImage(std::shared_ptr<const Private> d) : d(std::move(d)) {}

namespace {

std::shared_ptr<VKImage::Private> newRecipe(const QString &operation)
{
    vkGeglInit();
    const QByteArray name = operation.toUtf8();
    if (!gegl_has_operation(name.constData()))
        return nullptr;
    auto p = std::make_shared<VKImage::Private>();
    p->graph = gegl_node_new();
    p->node = gegl_node_new_child(p->graph, "operation", name.constData(), nullptr);
    return p;
}

} // namespace

VKImage VKImage::imageWithFloatPixels(const float *rgba, int width, int height,
                                      qsizetype bytesPerLine)
{
    if (!rgba || width <= 0 || height <= 0)
        return {};
    auto p = newRecipe(QStringLiteral("gegl:buffer-source"));
    const GeglRectangle rect = {0, 0, width, height};
    const Babl *format = babl_format("RGBA float");
    GeglBuffer *buffer = gegl_buffer_new(&rect, format);
    gegl_buffer_set(buffer, &rect, 0, format, rgba,
                    bytesPerLine > 0 ? gint(bytesPerLine) : GEGL_AUTO_ROWSTRIDE);
    gegl_node_set(p->node, "buffer", buffer, nullptr);
    g_object_unref(buffer);
    return VKImage(std::move(p));
}

VKImage VKImage::imageWithQImage(const QImage &image)
{
    if (image.isNull())
        return {};
    const QImage rgba = image.convertToFormat(QImage::Format_RGBA8888);
    auto p = newRecipe(QStringLiteral("gegl:buffer-source"));
    const GeglRectangle rect = {0, 0, rgba.width(), rgba.height()};
    const Babl *format = babl_format("R'G'B'A u8");
    GeglBuffer *buffer = gegl_buffer_new(&rect, format);
    gegl_buffer_set(buffer, &rect, 0, format, rgba.constBits(), gint(rgba.bytesPerLine()));
    gegl_node_set(p->node, "buffer", buffer, nullptr);
    g_object_unref(buffer);
    return VKImage(std::move(p));
}

VKImage VKImage::imageWithOperation(const QString &operation, const QVariantMap &properties)
{
    auto p = newRecipe(operation);
    if (!p)
        return {};
    vkGeglSetProperties(p->node, operation, properties);
    return VKImage(std::move(p));
}

VKImage VKImage::imageWithGeglNode(GeglNode *node, const QList<VKImage> &inputs)
{
    if (!node)
        return {};
    vkGeglInit();
    auto p = std::make_shared<Private>();
    p->foreignNode = node;
    p->inputs = inputs;
    return VKImage(std::move(p));
}

QRect VKImage::extent() const
{
    if (!d)
        return {};
    std::lock_guard lock(renderMutex());
    const GeglRectangle box = gegl_node_get_bounding_box(d->output());
    return QRect(box.x, box.y, box.width, box.height);
}

bool VKImage::renderFloatPixels(const QRect &rect, float *rgba, qsizetype bytesPerLine) const
{
    if (!d || !rgba || rect.isEmpty())
        return false;
    const GeglRectangle roi = {rect.x(), rect.y(), rect.width(), rect.height()};
    std::lock_guard lock(renderMutex());
    gegl_node_blit(d->output(), 1.0, &roi, babl_format("RGBA float"), rgba,
                   bytesPerLine > 0 ? gint(bytesPerLine) : GEGL_AUTO_ROWSTRIDE, GEGL_BLIT_DEFAULT);
    return true;
}

QList<float> VKImage::floatPixels(const QRect &rect) const
{
    if (!d || rect.isEmpty())
        return {};
    QList<float> pixels(qsizetype(rect.width()) * rect.height() * 4);
    renderFloatPixels(rect, pixels.data());
    return pixels;
}

QImage VKImage::renderImage(const QRect &rect, int qimageFormat) const
{
    if (!d || rect.isEmpty())
        return {};
    const QImage::Format format =
        qimageFormat < 0 ? QImage::Format_RGBA8888 : QImage::Format(qimageFormat);
    const Babl *bablFormat = nullptr;
    if (format == QImage::Format_RGBA8888)
        bablFormat = babl_format("R'G'B'A u8");
    else if (format == QImage::Format_RGBA32FPx4)
        bablFormat = babl_format("RGBA float");
    else
        return {};
    QImage image(rect.size(), format);
    if (image.isNull())
        return {};
    const GeglRectangle roi = {rect.x(), rect.y(), rect.width(), rect.height()};
    std::lock_guard lock(renderMutex());
    gegl_node_blit(d->output(), 1.0, &roi, bablFormat, image.bits(), gint(image.bytesPerLine()),
                   GEGL_BLIT_DEFAULT);
    return image;
}

VKImage VKImage::imageByApplyingOperation(const QString &operation, const QVariantMap &properties,
                                          const QList<std::pair<QString, VKImage>> &inputs) const
{
    if (!d)
        return {};
    auto p = newRecipe(operation);
    if (!p)
        return {};
    vkGeglSetProperties(p->node, operation, properties);
    if (gegl_node_has_pad(p->node, "input")) {
        gegl_node_connect_from(p->node, "input", d->output(), "output");
    }
    p->inputs.append(*this);
    for (const auto &[pad, image] : inputs) {
        const QByteArray padName = pad.toUtf8();
        if (image.isNull() || !gegl_node_has_pad(p->node, padName.constData()))
            continue;
        gegl_node_connect_from(p->node, padName.constData(), image.d->output(), "output");
        p->inputs.append(image);
    }
    return VKImage(std::move(p));
}

VKImage VKImage::imageByApplyingPointFunction(PointFunction function) const
{
    if (!d)
        return {};
    auto p = newRecipe(QString::fromLatin1(kVKPointFunctionOperation));
    p->function = std::make_unique<PointFunction>(std::move(function));
    gegl_node_set(p->node, "function", static_cast<gpointer>(p->function.get()), nullptr);
    gegl_node_connect_from(p->node, "input", d->output(), "output");
    p->inputs.append(*this);
    return VKImage(std::move(p));
}

GeglNode *VKImage::geglNode() const
{
    return d ? d->output() : nullptr;
}

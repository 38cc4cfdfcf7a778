// An image as a recipe: the output of a graph of image operations that runs only when someone
// renders a rectangle of it. Copies share the recipe; a recipe never changes once made.
// Images may be rendered from any thread; renders in the process take turns.
#pragma once

#include "Foundation/VKExport.h"

#include <QList>
#include <QMetaType>
#include <QRect>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

class QImage;
typedef struct _GeglNode GeglNode;

class VK_EXPORT VKImage
{
public:
    // Works on `count` pixels of straight (not premultiplied) linear RGBA floats in place.
    // Runs on the renderer's worker threads, several calls at once: it must be thread-safe.
    using PointFunction = std::function<void(float *rgba, qint64 count)>;

    // The null image.
    VKImage();

    // A copy of `width` x `height` straight linear RGBA float pixels with the origin at 0,0.
    // `bytesPerLine` 0 means tightly packed rows. Null for an empty size or no pixels.
    static VKImage imageWithFloatPixels(const float *rgba, int width, int height,
                                        qsizetype bytesPerLine = 0);
    // A copy of a QImage, read as sRGB-encoded 8 bits per channel (any format converts).
    static VKImage imageWithQImage(const QImage &image);
    // The output of an operation that has no input (a generator), such as "gegl:color".
    // Null when the operation is unknown.
    static VKImage imageWithOperation(const QString &operation, const QVariantMap &properties = {});

    bool isNull() const { return !d; }

    // The area with pixels; generators answer a very large rectangle. Empty for the null image.
    QRect extent() const;

    // Renders `rect` as straight linear RGBA floats into `rgba` (bytesPerLine 0: tightly
    // packed). False for the null image or an empty rectangle.
    bool renderFloatPixels(const QRect &rect, float *rgba, qsizetype bytesPerLine = 0) const;
    // The same into a new list of width * height * 4 floats; empty on failure.
    QList<float> floatPixels(const QRect &rect) const;
    // Renders `rect` into a QImage: QImage::Format_RGBA8888 (sRGB-encoded, the default) or
    // QImage::Format_RGBA32FPx4 (linear floats). A null QImage on failure or another format.
    QImage renderImage(const QRect &rect, int qimageFormat = -1) const;

    // A new recipe: this image through `operation` (into its "input" pad) with the properties
    // set, and further images into the named pads ("aux"). Property values convert as for
    // operation filters (numbers, booleans, strings, enum nicks, colours as QColor or RGB
    // triples). The null image when this one is null or the operation is unknown.
    VKImage imageByApplyingOperation(const QString &operation, const QVariantMap &properties = {},
                                     const QList<std::pair<QString, VKImage>> &inputs = {}) const;
    // A new recipe that runs `function` over the pixels. Null when this image is null.
    VKImage imageByApplyingPointFunction(PointFunction function) const;

    // The recipe's output node, for code that builds GEGL graphs itself; it lives as long as
    // a copy of this image does. Null for the null image.
    GeglNode *geglNode() const;
    // Wraps a node that the caller made; the image takes over the caller's reference to
    // `node` and keeps `inputs` (the images the node reads) alive with it.
    static VKImage imageWithGeglNode(GeglNode *node, const QList<VKImage> &inputs = {});

    // The same recipe (not: the same pixels).
    friend bool operator==(const VKImage &a, const VKImage &b) { return a.d == b.d; }

    struct Private;

private:
    explicit VKImage(std::shared_ptr<const Private> d);
    std::shared_ptr<const Private> d;
};

Q_DECLARE_METATYPE(VKImage)

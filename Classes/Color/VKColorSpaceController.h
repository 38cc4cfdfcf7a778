// The handful of colour spaces the filters work in, made once and shared: device RGB, Rec. 709
// and linear ProPhoto (from the library's ICC profiles), generic linear RGB and generic RGB.
// Each is a babl space (for GEGL pixel formats) and converts to a QColorSpace for display.
#pragma once

#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QString>

#include <memory>

class QColorSpace;
typedef union _Babl Babl;

// A colour space value; copies share it. The null space stands for a space that could not be
// made.
class VK_EXPORT VKColorSpace
{
public:
    VKColorSpace() = default;
    bool isNull() const { return !d; }

    QString name() const;
    // Whether pixels in this space are linear light (formats without the "'" of babl).
    bool isLinear() const;
    // The babl space (nullptr for the null space).
    const Babl *bablSpace() const;
    // Straight RGBA floats in this space: "RGBA float" or "R'G'B'A float" with the space.
    const Babl *bablRGBAFloatFormat() const;
    // The profile the space was read from; empty for the named spaces.
    QByteArray iccProfile() const;
    QColorSpace toQColorSpace() const;

    friend bool operator==(const VKColorSpace &a, const VKColorSpace &b) { return a.d == b.d; }

    struct Private;

private:
    friend class VKColorSpaceController;
    std::shared_ptr<const Private> d;
};

class VK_EXPORT VKColorSpaceController
{
public:
    enum Space { Device, Rec709, RGBLinear, ProPhotoLinear, GenericRGB };

    static VKColorSpaceController *sharedController();

    // The shared controller's spaces.
    static VKColorSpace deviceColorSpace();
    static VKColorSpace rec709ColorSpace();
    static VKColorSpace rgbLinearColorSpace();
    static VKColorSpace proPhotoLinearColorSpace();
    static VKColorSpace genericRGBColorSpace();

    // Made on first call and kept; a profile that cannot be read gives the null space and is
    // tried again on the next call. Thread-safe.
    VKColorSpace colorSpace(Space space);

    // Where "rec709.icc" and "ProPhoto.icc" are read: the library's built-in resources, or a
    // folder a host sets (empty to go back to the built-in ones). Spaces already made stay.
    void setProfileFolder(const QString &folder);
    QString profilePath(const QString &fileName) const;

    VKColorSpaceController(const VKColorSpaceController &) = delete;
    VKColorSpaceController &operator=(const VKColorSpaceController &) = delete;

private:
    VKColorSpaceController();
    ~VKColorSpaceController();
    struct Private;
    std::unique_ptr<Private> d;
};

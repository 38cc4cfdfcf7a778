#include "Color/VKColorSpaceController.h"

#include "Color/VKGegl_p.h"
#include "Foundation/VKLogger.h"

#include <QColorSpace>
#include <QFile>

#include <mutex>

namespace {

const QString kClassName = QStringLiteral("VKColorSpaceController");
const QString kBuiltInFolder = QStringLiteral(":/VessanUtilities/Color");

VKLogContext logContext(const char *operation, const void *object)
{
    return {kClassName, QString::fromLatin1(operation), object};
}

} // namespace

struct VKColorSpace::Private
{
    QString name;
    bool linear = false;
    const Babl *space = nullptr;
    QByteArray icc;
    QColorSpace qspace;
};

QString VKColorSpace::name() const
{
    return d ? d->name : QString();
}

bool VKColorSpace::isLinear() const
{
    return d && d->linear;
}

const Babl *VKColorSpace::bablSpace() const
{
    return d ? d->space : nullptr;
}

const Babl *VKColorSpace::bablRGBAFloatFormat() const
{
    if (!d)
        return nullptr;
    return babl_format_with_space(d->linear ? "RGBA float" : "R'G'B'A float", d->space);
}

QByteArray VKColorSpace::iccProfile() const
{
    return d ? d->icc : QByteArray();
}

QColorSpace VKColorSpace::toQColorSpace() const
{
    return d ? d->qspace : QColorSpace();
}

struct VKColorSpaceController::Private
{
    std::mutex mutex;
    VKColorSpace spaces[5];
    QString profileFolder;
};

VKColorSpaceController::VKColorSpaceController() : d(std::make_unique<Private>()) {}
VKColorSpaceController::~VKColorSpaceController() = default;

VKColorSpaceController *VKColorSpaceController::sharedController()
{
    static auto *shared = new VKColorSpaceController();
    return shared;
}

VKColorSpace VKColorSpaceController::deviceColorSpace()
{
    return sharedController()->colorSpace(Device);
}

VKColorSpace VKColorSpaceController::rec709ColorSpace()
{
    return sharedController()->colorSpace(Rec709);
}

VKColorSpace VKColorSpaceController::rgbLinearColorSpace()
{
    return sharedController()->colorSpace(RGBLinear);
}

VKColorSpace VKColorSpaceController::proPhotoLinearColorSpace()
{
    return sharedController()->colorSpace(ProPhotoLinear);
}

VKColorSpace VKColorSpaceController::genericRGBColorSpace()
{
    return sharedController()->colorSpace(GenericRGB);
}

void VKColorSpaceController::setProfileFolder(const QString &folder)
{
    std::lock_guard lock(d->mutex);
    d->profileFolder = folder;
}

QString VKColorSpaceController::profilePath(const QString &fileName) const
{
    std::lock_guard lock(d->mutex);
    return (d->profileFolder.isEmpty() ? kBuiltInFolder : d->profileFolder) + u'/' + fileName;
}

VKColorSpace VKColorSpaceController::colorSpace(Space which)
{
    if (which < Device || which > GenericRGB)
        return {};
    {
        std::lock_guard lock(d->mutex);
        if (!d->spaces[which].isNull())
            return d->spaces[which];
    }
    vkGeglInit();
    auto p = std::make_shared<VKColorSpace::Private>();
    auto fromProfile = [&](const QString &fileName, const char *name, bool linear) -> bool {
        const QString path = profilePath(fileName);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            VKLogger::error(logContext("-[VKColorSpaceController colorSpace:]", this),
                            QStringLiteral("could not read the colour profile %@: %@"), path,
                            file.errorString());
            return false;
        }
        p->icc = file.readAll();
        const char *error = nullptr;
        p->space = babl_space_from_icc(p->icc.constData(), int(p->icc.size()),
                                       BABL_ICC_INTENT_RELATIVE_COLORIMETRIC, &error);
        p->qspace = QColorSpace::fromIccProfile(p->icc);
        if (!p->space || !p->qspace.isValid()) {
            VKLogger::error(logContext("-[VKColorSpaceController colorSpace:]", this),
                            QStringLiteral("the colour profile %@ is not usable: %@"), path,
                            QString::fromUtf8(error ? error : "not an RGB matrix profile"));
            return false;
        }
        p->name = QString::fromLatin1(name);
        p->linear = linear;
        return true;
    };
    switch (which) {
    case Device:
        p->name = QStringLiteral("Device RGB");
        p->space = babl_space("sRGB");
        p->qspace = QColorSpace(QColorSpace::SRgb);
        break;
    case Rec709:
        if (!fromProfile(QStringLiteral("rec709.icc"), "Rec. 709", false))
            return {};
        break;
    case RGBLinear:
        p->name = QStringLiteral("Generic RGB Linear");
        p->linear = true;
        p->space = babl_space("sRGB");
        p->qspace = QColorSpace(QColorSpace::SRgbLinear);
        break;
    case ProPhotoLinear:
        if (!fromProfile(QStringLiteral("ProPhoto.icc"), "ProPhoto Linear", true))
            return {};
        break;
    case GenericRGB:
        // sRGB primaries with a plain 1.8 gamma, the traditional generic RGB of print work.
        p->name = QStringLiteral("Generic RGB");
        p->space = babl_space_from_chromaticities(
            "VKGenericRGB", 0.3127, 0.3290, 0.64, 0.33, 0.30, 0.60, 0.15, 0.06,
            babl_trc_gamma(1.8), babl_trc_gamma(1.8), babl_trc_gamma(1.8),
            BABL_SPACE_FLAG_EQUALIZE);
        p->qspace = QColorSpace(QColorSpace::Primaries::SRgb, 1.8f);
        break;
    }
    VKColorSpace space;
    space.d = std::move(p);
    std::lock_guard lock(d->mutex);
    // Another thread may have made it meanwhile; the first one made is kept.
    if (d->spaces[which].isNull())
        d->spaces[which] = space;
    return d->spaces[which];
}

// A set command's object on its way to NetworkManager. Input: one byte each for the kind of device, the
// security of the access point and the method of the profile so far; then the payload.

#include "fuzz.h"

#include "engine/configfields.h"
#include "engine/engine.h"
#include "engine/settings.h"

#include <QJsonDocument>

#include <algorithm>
#include <iterator>

using namespace Lanvoy;
using NetworkManager::ConnectionSettings;
using NetworkManager::Ipv4Setting;
using NetworkManager::Setting;

namespace
{

constexpr ConnectionSettings::ConnectionType kinds[]
    = {ConnectionSettings::Wired, ConnectionSettings::Wireless, ConnectionSettings::Gsm};
constexpr const char* securityWords[] = {"none", "wep", "wpa1", "wpa2", "wpa1-wpa2", "wpa3", "unknown"};
constexpr Ipv4Setting::ConfigMethod methods[]
    = {Ipv4Setting::Automatic, Ipv4Setting::LinkLocal, Ipv4Setting::Manual, Ipv4Setting::Shared};
constexpr const char* refusals[] = {"gsm.password: empty",       "gsm.pin: empty",
                                    "ipv4.dns: not allowed",     "ipv4.addresses: not allowed",
                                    "ipv4.gateway: not allowed", "802-11-wireless: required"};
constexpr int headerSize = 3;

void setRecords(Config& config, const QJsonObject& object)
{
    Config::Ethernet ethernet = config.ethernet();
    Config::Wifi wifi = config.wifi();
    Config::Modem modem = config.modem();
    assignFields(ethernet, object);
    assignFields(wifi, object);
    assignFields(modem, object);
    config.setEthernet(ethernet);
    config.setWifi(wifi);
    config.setModem(modem);
}

ConnectionSettings::Ptr profile(ConnectionSettings::ConnectionType kind, Ipv4Setting::ConfigMethod method)
{
    const ConnectionSettings::Ptr settings(new ConnectionSettings(kind));
    settings->setting(Setting::Ipv4).staticCast<Ipv4Setting>()->setMethod(method);
    return settings;
}

// Whatever NetworkManager objects to, and however often: the corrections come to an end.
void refuse(const ConnectionSettings::Ptr& settings)
{
    NMVariantMapMap map = settings->toMap();
    addEmptyGsmSecrets(map);
    int corrections = 0;
    for (bool mended = true; mended;) {
        mended = false;
        for (const char* refusal : refusals)
            mended |= correctRefusedMap(map, *settings, QString::fromLatin1(refusal));
        require(++corrections < 10, "corrections of a refused map come to an end");
    }
    require(!hasSecret(withoutSecrets(map)), "no secret stays in a map without secrets");
}

bool isPlainAscii(const QString& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c.unicode() > 0 && c.unicode() < 0x80; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < headerSize)
        return -1;
    const ConnectionSettings::ConnectionType kind = kinds[data[0] % std::size(kinds)];
    const QString security = QString::fromLatin1(securityWords[data[1] % std::size(securityWords)]);
    const Ipv4Setting::ConfigMethod method = methods[data[2] % std::size(methods)];
    const QByteArray payload(reinterpret_cast<const char*>(data) + headerSize,
                             static_cast<int>(size) - headerSize);

    static Config config(QStringLiteral("/dev/null/lanvoy.conf"), nullptr);
    setRecords(config, QJsonDocument::fromJson(payload).object());

    const ConnectionSettings::Ptr settings = profile(kind, method);
    Engine::updateConnectionSettings(settings, config, security);
    refuse(settings);

    // What NetworkManager holds then, which takes no wireless profile without its network's name: nothing is
    // left to change, except for the names that always count as changed.
    NMVariantMapMap map = settings->toMap();
    correctRefusedMap(map, *settings, QStringLiteral("802-11-wireless: required"));
    const ConnectionSettings::Ptr held(new ConnectionSettings(map));
    const bool again = Engine::updateConnectionSettings(held, config, security);
    require(!again || (kind == ConnectionSettings::Wireless && !isPlainAscii(config.wifi().ssid)),
            "a second run finds nothing to change");
    return 0;
}

#include "robot/MachineBattery.h"

#include <charconv>
#include <filesystem>
#include <fstream>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Log.h"
#include "robot/BatteryKeys.h"

namespace KR {

namespace fs = std::filesystem;

namespace {

const vo::Logger machineBatteryLog("KRBattery");

/// The first line of a small file; "" when it cannot be read.
std::string lineOf(const fs::path& file)
{
    constexpr std::size_t kMaxBytes = 64;
    std::string text(kMaxBytes, '\0');
    std::ifstream in(file, std::ios::binary);
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text.substr(0, text.find('\n'));
}

std::optional<int> numberOf(const fs::path& file)
{
    const std::string text = lineOf(file);
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || last != end)
        return std::nullopt;
    return number;
}

/// What the power supplies of a folder amount to.
struct Sum {
    int batteries = 0;
    int charge = 0;
    bool charges = false;
    bool discharges = false;
    bool hasSource = false;
    bool isOnline = false;

    void add(const fs::path& supply)
    {
        if (lineOf(supply / "scope") == "Device")
            return;
        const std::string type = lineOf(supply / "type");
        if (type == "Battery") {
            addBattery(supply);
        } else if (const auto online = numberOf(supply / "online"); online && !type.empty()) {
            hasSource = true;
            isOnline = isOnline || *online > 0;
        }
    }
    void addBattery(const fs::path& supply)
    {
        const auto capacity = numberOf(supply / "capacity");
        if (!capacity || *capacity < 0 || *capacity > 100)
            return;
        ++batteries;
        charge += *capacity;
        const std::string status = lineOf(supply / "status");
        charges = charges || status == "Charging" || status == "Full";
        discharges = discharges || status == "Discharging";
    }
};

}  // namespace

std::optional<MachineBattery::Reading> MachineBattery::read(const std::string& folder)
{
    Sum sum;
    std::error_code error;
    // An empty path, or one that is no folder, has no entries.
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
        sum.add(entry->path());
    if (sum.batteries == 0)
        return std::nullopt;
    const bool connected = sum.hasSource ? sum.isOnline : sum.charges && !sum.discharges;
    return Reading{sum.charge / sum.batteries, connected};
}

MachineBattery::MachineBattery(boost::shared_ptr<KRBroker> broker, const std::string& folder)
    : broker_(std::move(broker)),
      folder_(folder),
      object_(std::make_shared<vo::ServiceObject>(BatteryKeys::kService)),
      timer_(*broker_->clock(), "MachineBattery", [this] { poll(); })
{
    const auto reading = read(folder_);
    if (!reading)
        throw KRError(BatteryKeys::kService, "MachineBattery", "there is no battery in " + folder);
    object_
        ->method(
            "getBatteryCharge", [this] { return getBatteryCharge(); }, "Charge in percent")
        .method("isChargerConnected", [this] { return isChargerConnected(); });
    {
        const vo::Lock lock(mutex_);
        last_ = *reading;
        BatteryKeys::publish(broker_->memory(), last_.connected);
        timer_.set(kPeriod);
    }
    BatteryKeys::describe(broker_->keys());
    broker_->session().registerService(object_);
}

MachineBattery::~MachineBattery()
{
    broker_->session().unregisterService(BatteryKeys::kService);
}

int MachineBattery::getBatteryCharge() const
{
    const vo::Lock lock(mutex_);
    return last_.charge;
}

bool MachineBattery::isChargerConnected() const
{
    const vo::Lock lock(mutex_);
    return last_.connected;
}

void MachineBattery::poll()
{
    const auto reading = read(folder_);
    const vo::Lock lock(mutex_);
    if (!reading && !fails_)
        machineBatteryLog.warning(
            "poll", "no battery can be read in " + folder_ + "; the last reading holds");
    fails_ = !reading;
    if (reading) {
        const bool changed = reading->connected != last_.connected;
        last_ = *reading;
        if (changed)
            BatteryKeys::publish(broker_->memory(), last_.connected);
    }
    timer_.set(kPeriod);
}

}  // namespace KR

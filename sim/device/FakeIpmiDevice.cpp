#include "sim/device/FakeIpmiDevice.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace tav::sim {

using Clock = IpmiFile::Clock;
using std::chrono::milliseconds;

Reply Reply::answer(std::vector<std::uint8_t> data, std::uint8_t completionCode) {
    return {0, {{IpmiAnswer{completionCode, std::move(data), 0, 0}, milliseconds(0)}}};
}

Reply Reply::unreceivable(int error) {
    return {0, {{IpmiAnswer{0, {}, 0, error}, milliseconds(0)}}};
}

Reply Reply::after(milliseconds delay) && {
    for (Timed& timed : answers)
        timed.delay = delay;
    return std::move(*this);
}

Reply Reply::asAnswerToAnother() && {
    constexpr long elsewhere = 1'000'000;
    for (Timed& timed : answers)
        timed.answer.msgidOffset = elsewhere;
    return std::move(*this);
}

Reply Reply::asEvent() && {
    for (Timed& timed : answers)
        timed.answer.receiveType = IPMI_ASYNC_EVENT_RECV_TYPE;
    return std::move(*this);
}

Reply Reply::then(Reply next) && {
    answers.insert(answers.end(), next.answers.begin(), next.answers.end());
    return std::move(*this);
}

/// The device and what stands behind it. The descriptors that a test leaves open keep it alive.
class FakeIpmiDevice::Driver final : public Device,
                                     public IpmiBackend,
                                     public std::enable_shared_from_this<Driver> {
 public:
    explicit Driver(Handler handler) : handler_(std::move(handler)) {}

    void start() {
        clockwork_ = std::thread([this] { runClockwork(); });
    }

    void stop() {
        {
            const std::lock_guard guard(lock_);
            stopping_ = true;
        }
        changed_.notify_all();
        clockwork_.join();
    }

    std::shared_ptr<OpenDevice> open(FileDescriptor deviceEnd, int& error) override;
    int submit(IpmiFile& file, std::uint64_t number, const IpmiRequest& request) override;

    void setHandler(Handler handler) {
        const std::lock_guard guard(handlerLock_);
        handler_ = std::move(handler);
    }

    void setPresent(bool present) {
        const std::lock_guard guard(lock_);
        present_ = present;
    }

    void setPatience(std::optional<milliseconds> patience) {
        const std::lock_guard guard(lock_);
        patience_ = patience;
    }

    std::vector<IpmiRequest> requests() const {
        const std::lock_guard guard(lock_);
        return requests_;
    }

    std::size_t opens() const {
        const std::lock_guard guard(lock_);
        return opens_;
    }

    std::size_t refusedOpens() const {
        const std::lock_guard guard(lock_);
        return refusedOpens_;
    }

    std::size_t stillOpen() const {
        const std::lock_guard guard(lock_);
        return openFiles().size();
    }

 private:
    struct Delayed {
        std::weak_ptr<IpmiFile> file;
        std::uint64_t number = 0;
        bool first = false;
        IpmiRequest request;
        IpmiAnswer answer;
    };

    static constexpr std::size_t maximumOpen = 30;

    std::vector<std::shared_ptr<IpmiFile>> openFiles() const;
    void runClockwork();
    Clock::time_point nextMoment(Clock::time_point now);

    /// The first answer ends the request, and is dropped if the driver has given up on it; further
    /// ones are the controller's surplus.
    static void deliver(IpmiFile& file, const Delayed& delayed) {
        if (delayed.first && !file.finish(delayed.number)) return;
        file.deliver(delayed.request, delayed.answer);
    }

    std::mutex handlerLock_;
    Handler handler_;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    bool stopping_ = false;
    bool present_ = true;
    std::optional<milliseconds> patience_;
    std::vector<IpmiRequest> requests_;
    std::size_t opens_ = 0;
    std::size_t refusedOpens_ = 0;
    std::vector<std::weak_ptr<IpmiFile>> files_;
    std::multimap<Clock::time_point, Delayed> delayed_;
    std::thread clockwork_;
};

std::vector<std::shared_ptr<IpmiFile>> FakeIpmiDevice::Driver::openFiles() const {
    std::vector<std::shared_ptr<IpmiFile>> open;
    for (const auto& known : files_) {
        auto file = known.lock();
        if (file != nullptr && !file->closedByProgram()) open.push_back(std::move(file));
    }
    return open;
}

namespace {

/// Keeps what a file answers through alive as long as the file.
struct FileWithOwner {
    std::shared_ptr<IpmiBackend> owner;
    IpmiFile file;
};

}  // namespace

std::shared_ptr<OpenDevice> FakeIpmiDevice::Driver::open(FileDescriptor deviceEnd, int& error) {
    const std::lock_guard guard(lock_);
    if (!present_) {
        ++refusedOpens_;
        error = ENOENT;
        return nullptr;
    }
    const auto open = openFiles();
    if (open.size() >= maximumOpen) {
        error = EBUSY;
        return nullptr;
    }
    files_.assign(open.begin(), open.end());
    auto owned = std::shared_ptr<FileWithOwner>(
        new FileWithOwner{shared_from_this(),
                          {std::move(deviceEnd), static_cast<unsigned>(opens_), *this, patience_}});
    std::shared_ptr<IpmiFile> file(owned, &owned->file);
    ++opens_;
    files_.push_back(file);
    return file;
}

int FakeIpmiDevice::Driver::submit(IpmiFile& file, std::uint64_t number,
                                   const IpmiRequest& request) {
    Reply reply;
    {
        const std::lock_guard handling(handlerLock_);
        {
            const std::lock_guard guard(lock_);
            requests_.push_back(request);
        }
        reply = handler_(request);
    }
    if (reply.sendError != 0) return reply.sendError;

    bool first = true;
    for (Reply::Timed& timed : reply.answers) {
        Delayed answer{{}, number, std::exchange(first, false), request, std::move(timed.answer)};
        if (timed.delay == milliseconds(0)) {
            deliver(file, answer);
            continue;
        }
        const std::lock_guard guard(lock_);
        for (auto& open : openFiles()) {
            if (open.get() == &file) answer.file = open;
        }
        delayed_.emplace(Clock::now() + timed.delay, std::move(answer));
    }
    changed_.notify_all();
    return 0;
}

/// Delivers what is due, gives up on what is overdue, and says when to look again. Holds the lock.
Clock::time_point FakeIpmiDevice::Driver::nextMoment(Clock::time_point now) {
    while (!delayed_.empty() && delayed_.begin()->first <= now) {
        if (const auto file = delayed_.begin()->second.file.lock()) {
            deliver(*file, delayed_.begin()->second);
        }
        delayed_.erase(delayed_.begin());
    }
    Clock::time_point next = now + std::chrono::hours(1);
    if (!delayed_.empty()) next = std::min(next, delayed_.begin()->first);
    for (const auto& file : openFiles()) {
        next = std::min(next, file->giveUpOverdue(now).value_or(next));
    }
    return next;
}

void FakeIpmiDevice::Driver::runClockwork() {
    std::unique_lock guard(lock_);
    while (!stopping_)
        changed_.wait_until(guard, nextMoment(Clock::now()));
}

FakeIpmiDevice::FakeIpmiDevice(Handler handler, const std::string& path)
    : path_(path), driver_(std::make_shared<Driver>(std::move(handler))) {
    driver_->start();
    installDevice(path_, driver_);
}

FakeIpmiDevice::~FakeIpmiDevice() {
    removeDevice(path_);
    driver_->stop();
}

void FakeIpmiDevice::setHandler(Handler handler) {
    driver_->setHandler(std::move(handler));
}

void FakeIpmiDevice::setPresent(bool present) {
    driver_->setPresent(present);
}

void FakeIpmiDevice::setPatience(std::optional<milliseconds> patience) {
    driver_->setPatience(patience);
}

std::vector<IpmiRequest> FakeIpmiDevice::requests() const {
    return driver_->requests();
}

std::size_t FakeIpmiDevice::opens() const {
    return driver_->opens();
}

std::size_t FakeIpmiDevice::refusedOpens() const {
    return driver_->refusedOpens();
}

std::size_t FakeIpmiDevice::stillOpen() const {
    return driver_->stillOpen();
}

}  // namespace tav::sim

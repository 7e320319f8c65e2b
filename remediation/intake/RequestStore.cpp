#include "remediation/intake/RequestStore.h"

#include <memory>
#include <utility>

namespace zelor::remediation {

RequestStore::RequestStore(Requests& requests, boost::mutex& mutex, Cancellation& cancellation)
    : requests_(requests), mutex_(mutex), cancellation_(cancellation) {}

void RequestStore::set(std::map<std::string, std::string> requests) {
    const auto replacement = std::make_shared<const std::map<std::string, std::string>>(std::move(requests));
    Requests replaced;  // freed after the lock
    const boost::unique_lock<boost::mutex> lock(mutex_);
    replaced = std::exchange(requests_, replacement);
    if (!takenUp_) cancellation_.setCancellable(requests_);
}

std::map<std::string, std::string> RequestStore::copy() const {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    return *requests_;
}

RequestStore::Requests RequestStore::takeUp() {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    takenUp_ = requests_;
    cancellation_.setCancellable(takenUp_);
    return takenUp_;
}

RequestStore::Requests RequestStore::takenUp() const {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    return takenUp_ ? takenUp_ : requests_;
}

}  // namespace zelor::remediation

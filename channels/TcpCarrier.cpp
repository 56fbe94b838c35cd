#include "channels/TcpCarrier.h"

namespace oxelo {

namespace {
constexpr int64_t kReadTag = 0;
constexpr double kNoTimeout = -1;
}  // namespace

std::shared_ptr<TcpCarrier> TcpCarrier::adopt(std::shared_ptr<GCDAsyncSocket> socket) {
  if (!socket) return nullptr;
  std::shared_ptr<TcpCarrier> carrier(new TcpCarrier(std::move(socket)));
  carrier->socket_->setDelegate(carrier);
  return carrier;
}

std::shared_ptr<TcpCarrier> TcpCarrier::connect(const std::string& host, uint16_t port,
                                                double timeout,
                                                std::weak_ptr<CarrierDelegate> delegate,
                                                std::shared_ptr<Queue> queue,
                                                OptionalError& error) {
  auto carrier = adopt(GCDAsyncSocket::create({}, std::move(queue)));
  carrier->setDelegate(std::move(delegate));
  if (carrier->socket_->connectToHost(host, port, timeout, error)) return carrier;
  carrier->socket_->setDelegate({});
  carrier->socket_->disconnect();
  return nullptr;
}

TcpCarrier::~TcpCarrier() { socket_->setDelegate({}); }

void TcpCarrier::startReading() {
  {
    std::lock_guard lock(mutex_);
    if (reading_) return;
    reading_ = true;
  }
  socket_->readDataWithTimeout(kNoTimeout, kReadTag);
}

void TcpCarrier::sendRecord(CarrierRecord record) {
  if (record.framedOnly || !record.bytes || record.bytes->empty()) return;
  auto bytes = record.bytes;
  if (record.tail && !record.tail->empty()) {
    auto joined = std::make_shared<std::vector<uint8_t>>();
    joined->reserve(bytes->size() + record.tail->size());
    joined->insert(joined->end(), bytes->begin(), bytes->end());
    joined->insert(joined->end(), record.tail->begin(), record.tail->end());
    bytes = std::move(joined);
  }
  {
    std::lock_guard lock(mutex_);
    reports_.push_back(record.report);
  }
  socket_->writeData(std::move(bytes), record.timeout, record.tag);
}

void TcpCarrier::close() { socket_->disconnect(); }

void TcpCarrier::socketDidConnectToHost(GCDAsyncSocket*, const std::string& host, uint16_t port) {
  if (auto d = delegate_.get()) d->carrierDidConnect(this, host, port);
}

void TcpCarrier::socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                                   int64_t) {
  if (auto d = delegate_.get()) d->carrierDidReceiveData(this, data, /*endsMessage=*/false);
  sock->readDataWithTimeout(kNoTimeout, kReadTag);
}

void TcpCarrier::socketDidWriteDataWithTag(GCDAsyncSocket*, int64_t tag) {
  bool report = true;
  {
    std::lock_guard lock(mutex_);
    if (!reports_.empty()) {
      report = reports_.front();
      reports_.pop_front();
    }
  }
  if (!report) return;
  if (auto d = delegate_.get()) d->carrierDidWriteRecord(this, tag);
}

double TcpCarrier::socketShouldTimeoutWriteWithTag(GCDAsyncSocket*, int64_t tag, double elapsed,
                                                   size_t bytesDone) {
  auto d = delegate_.get();
  return d ? d->carrierShouldTimeoutWrite(this, tag, elapsed, bytesDone) : 0.0;
}

void TcpCarrier::socketDidDisconnect(GCDAsyncSocket*, const OptionalError& error) {
  {
    std::lock_guard lock(mutex_);
    reports_.clear();
  }
  if (auto d = delegate_.get()) d->carrierDidEnd(this, error);
}

}  // namespace oxelo

// A connected socket as a synchronous Beast stream, with one deadline for all its reads and
// writes: a client that is too slow gets beast::error::timeout instead of holding a worker.
#ifndef QRIX_HOST_FD_STREAM_H_
#define QRIX_HOST_FD_STREAM_H_

#include <sys/uio.h>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <cstddef>

namespace qrix::host {

class FdStream {
 public:
  using Clock = std::chrono::steady_clock;

  FdStream(int fd, Clock::time_point deadline) : fd_(fd), deadline_(deadline) {}
  void SetDeadline(Clock::time_point deadline) { deadline_ = deadline; }

  template <class MutableBuffers>
  std::size_t read_some(const MutableBuffers& buffers, boost::beast::error_code& ec) {
    for (auto it = boost::asio::buffer_sequence_begin(buffers);
         it != boost::asio::buffer_sequence_end(buffers); ++it) {
      const boost::asio::mutable_buffer b(*it);
      if (b.size() > 0) {
        return ReadSome(b.data(), b.size(), ec);
      }
    }
    ec = {};
    return 0;
  }
  template <class MutableBuffers>
  std::size_t read_some(const MutableBuffers& buffers) {
    boost::beast::error_code ec;
    const std::size_t n = read_some(buffers, ec);
    if (ec) {
      throw boost::system::system_error(ec);
    }
    return n;
  }

  template <class ConstBuffers>
  std::size_t write_some(const ConstBuffers& buffers, boost::beast::error_code& ec) {
    iovec iov[kMaxIov];
    int count = 0;
    for (auto it = boost::asio::buffer_sequence_begin(buffers);
         it != boost::asio::buffer_sequence_end(buffers) && count < kMaxIov; ++it) {
      const boost::asio::const_buffer b(*it);
      if (b.size() > 0) {
        iov[count++] = iovec{const_cast<void*>(b.data()), b.size()};
      }
    }
    if (count == 0) {
      ec = {};
      return 0;
    }
    return WriteSome(iov, count, ec);
  }
  template <class ConstBuffers>
  std::size_t write_some(const ConstBuffers& buffers) {
    boost::beast::error_code ec;
    const std::size_t n = write_some(buffers, ec);
    if (ec) {
      throw boost::system::system_error(ec);
    }
    return n;
  }

 private:
  static constexpr int kMaxIov = 16;

  std::size_t ReadSome(void* data, std::size_t size, boost::beast::error_code& ec);
  std::size_t WriteSome(const iovec* iov, int count, boost::beast::error_code& ec);
  // Waits until `events` are ready or the deadline passes.
  bool Wait(short events, boost::beast::error_code& ec);

  int fd_;
  Clock::time_point deadline_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_FD_STREAM_H_

#include "Connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <sstream>
#include <stdexcept>

#include <vorel/interrupt/SigIntException.h>
#include <vorel/plain/PlainC.h>
#include "show/Commands.h"

namespace {

constexpr size_t kChunkSize = 4096;

struct Request {
   Print print;
   vorel::OutputFormat_t format;
};

/** What a line asks for: "show WHAT [text|json]" or "stats [text|json]". */
Request parse(const std::string& line, const Print& stats) {
   std::istringstream words(line);
   std::string verb;
   std::string name;
   std::string format = "text";
   std::string rest;
   Print print;
   words >> verb;
   if (verb == "stats")
      print = stats;
   else if (verb == "show" && words >> name)
      print = findCommand(name);
   words >> format >> rest;
   Request request{std::move(print), stringToOutputFormat(format.c_str())};
   if (!request.print || request.format == vorel::outputFormatUnknown || !rest.empty())
      throw std::invalid_argument("unknown command");
   return request;
}

}  // namespace

/** While it exists, a command runs, and what marks the thread is meant for that. */
class Connection::Running {
 public:
   explicit Running(Connection* connection) : connection_(connection) {
      connection_->running_ = true;
   }
   Running(const Running&) = delete;
   Running& operator=(const Running&) = delete;
   ~Running() {
      connection_->running_ = false;
      if (vorel::isInterrupted())
         vorel::resetInterrupted();
   }

 private:
   Connection* const connection_;
};

/** Looks, each time a command's output needs more room, for a "cancel" that has arrived by then. */
class Connection::Output : public vorel::NonBlockingCliTxnBuffer {
 public:
   explicit Output(Connection* connection)
         : NonBlockingCliTxnBuffer(kChunkSize), connection_(connection) {}

   void allocateSpace(size_t count) override {
      if (count > rlen() && connection_->running_) {
         connection_->receive();
         connection_->markIfCancelled();
      }
      NonBlockingCliTxnBuffer::allocateSpace(count);
   }

 private:
   Connection* const connection_;
};

Connection::Connection(Fd socket, size_t limit, const Print& stats)
      : socket_(std::move(socket)),
        limit_(limit),
        stats_(stats),
        output_(std::make_unique<Output>(this)) {}

// Closed with input unread, the kernel would reset the connection, and a client could lose the end
// of what it has been sent. The input is taken off as far as it lies there now.
Connection::~Connection() {
   std::array<char, 65536> ignored;
   for (int i = 0; i < 128 && recv(socket(), ignored.data(), ignored.size(), 0) > 0; ++i) {
   }
}

size_t Connection::unsentBytes() const {
   return output_->usedSpace();
}

bool Connection::overLimit() const {
   return unsentBytes() > limit_;
}

uint32_t Connection::interest() const {
   uint32_t events = 0;
   if (!inputEnded_ && !input_.full() && !overLimit())
      events |= EPOLLIN;
   if (output_->haveData())
      events |= EPOLLOUT;
   return events;
}

bool Connection::canRun() const {
   return !input_.line().empty() && !overLimit();
}

bool Connection::finished() const {
   return broken_ || (inputEnded_ && input_.line().empty() && !output_->haveData());
}

void Connection::receive() {
   if (inputEnded_ || broken_ || input_.full())
      return;
   const LineReader::Result result = input_.readFrom(socket());
   inputEnded_ = result == LineReader::Result::end;
   broken_ = result == LineReader::Result::broken;
}

void Connection::runCommand() {
   const std::string line(input_.line());
   input_.dropLine();
   if (line == "cancel")  // it has done its work, or came too late
      return;
   std::string error;
   {
      const Running running(this);
      try {
         if (line.size() == LineReader::kCapacity) {
            stopReading();  // where the next line begins is not known
            throw std::length_error("line too long");
         }
         markIfCancelled();
         vorel::raiseSigIntIfNeeded();
         const Request request = parse(line, stats_);
         appendAnswer(*output_, Outcome::ok, request.format, request.print);
      } catch (const vorel::SigIntException&) {
         error = "aborted";
      } catch (const std::exception& failure) {
         error = failure.what();
      }
   }
   if (!error.empty()) {
      appendAnswer(*output_, Outcome::failed, vorel::outputFormatText,
                   [&](vorel::Renderer& out) { out.addFrills("%s\n", error.c_str()); });
   }
}

void Connection::send() {
   while (output_->haveData() && !broken_) {
      if (output_->writeSome(socket()) <= 0) {
         broken_ = errno != EAGAIN && errno != EINTR;
         return;
      }
   }
}

void Connection::stopReading() {
   inputEnded_ = true;
   input_.clear();
}

// The mark makes the renderer throw at the next thing it prints.
void Connection::markIfCancelled() const {
   if (broken_ || input_.line() == "cancel")
      vorel::setInterrupted();
}

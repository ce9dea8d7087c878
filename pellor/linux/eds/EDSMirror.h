// What is known of an address book in Evolution Data Server, between the thread that talks to the service and the
// others.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "pellor/linux/contacts/CardSource.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Any thread.
class EDSMirror {
 public:
  /// vCards by UID; absent for contacts that are gone.
  using Batch = std::map<std::string, std::optional<std::string>>;
  using Handler = std::function<void(const CardNews& news)>;

  /// Why there is no answer. The first text is for the log: it names nobody.
  struct Trouble {
    std::string problem;
    std::string details;
    bool isUntold = false;  ///< nobody can tell when it is over: the service has to be asked again
  };

  // By the thread that talks to the service

  /// The service has answered: these are all contacts of that source.
  void replace(const std::string& sourceUID, const Batch& contacts);
  void apply(const Batch& changes);
  /// The service is away. What was known is kept: it may be what is being read just now.
  void lose(Trouble trouble);
  void countCall() { ++_calls; }

  // By the others

  /// No thread can talk to the service. The text is for the log.
  void cannotAsk(const std::string& problem);
  /// There is now: its first answer is on its way.
  void beginToAsk();
  /// Waits until the service has answered or is known to be away, at most so many seconds.
  void awaitAnswer(double seconds);
  /// Throws CardSourceError, which begins with the title, while the service has not answered.
  std::map<std::string, CardSignature> list(const std::string& title);
  std::optional<CardSignature> signature(const std::string& title, const std::string& uid);
  CardContent read(const std::string& uid);
  std::string sourceUID();
  std::size_t contactCount();
  /// Absent while the service answers.
  std::optional<Trouble> trouble();
  std::size_t calls() const { return _calls; }

  /// One handler at a time. Without one: waits for a call that is under way.
  void setHandler(Handler handler);

 private:
  struct Card {
    CardSignature signature;
    std::string text;
  };

  void put(const Batch& contacts) PELLOR_REQUIRES(_mutex);
  void requireAnswer(const std::string& title) PELLOR_REQUIRES(_mutex);
  void tell(const FolderChange& change);

  Mutex _mutex;
  Condition _answered;
  std::map<std::string, Card> _cards PELLOR_GUARDED_BY(_mutex);
  std::string _sourceUID PELLOR_GUARDED_BY(_mutex);
  bool _isAnswering PELLOR_GUARDED_BY(_mutex) = false;
  std::optional<Trouble> _trouble PELLOR_GUARDED_BY(_mutex);
  Mutex _handlerMutex;
  Handler _handler PELLOR_GUARDED_BY(_handlerMutex);
  std::atomic<std::size_t> _calls = 0;
};

}  // namespace pellor

// The cross-process names of a list: posts, and which deliveries are of own posts.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace pellor {

class PLDomainSettings;

/// Posts the two names of a domain and observes them. Its invariant: each own post is paired with one delivery, as the
/// bus brings it back once, until a bus that brings nothing back is taken for gone. Main queue.
class PLOwnPosts {
 public:
  /// `settings` outlives this object, and its names stay once `observe` was called.
  PLOwnPosts(Process& process, const PLDomainSettings& settings) : _process(process), _settings(settings) {}
  ~PLOwnPosts();
  PLOwnPosts(const PLOwnPosts&) = delete;
  PLOwnPosts& operator=(const PLOwnPosts&) = delete;

  /// Calls these for each delivery, the own posts' included, while this object lives; once observed it does nothing.
  /// Where both names are one, deliveries are the list's.
  void observe(const std::function<void()>& listWasPosted, const std::function<void()>& titlesWerePosted);

  void postList() { _postExternally(_notificationForExternalListChange()); }
  void postTitles();

  /// Whether the delivery that is being handled counts as one of an own post.
  bool takeListEcho();
  bool takeTitlesEcho();
  /// Whether all own posts have come back.
  bool haveAllEchoes() const { return _postCount == 0 && _titlePostCount == 0; }
  /// Gives up echoes that do not come for 2 seconds.
  void awaitEchoes();

 private:
  const std::string& _notificationForExternalListChange() const;
  void _incrementExternalChangePostCount() { ++_postCount; }
  void _postExternally(const std::string& name);

  Process& _process;
  const PLDomainSettings& _settings;
  bool _isObserving = false;
  std::uint64_t _postCount = 0;       // of the list's name that have not come back
  std::uint64_t _titlePostCount = 0;  // of the titles' name, where it is another one
  double _lastPost = 0;               // when, in seconds of absolute time
  std::shared_ptr<Timer> _timer;
};

}  // namespace pellor

// Tells the person that work has stopped: on the laptop, with a chime that can be heard with the lid shut, and on the
// phone. It also shows what the engine has to say once.
#pragma once

#include <functional>
#include <string>

namespace tovi {

class Engine;
class Http;
class Notices;

class Notifier {
 public:
  // Takes over the engine's calls, and shows what was noted before it was there. Both must outlive this object.
  Notifier(Engine& engine, Http& http);
  ~Notifier();
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  void note(const std::string& title, const std::string& body);

  // Sends an alert to a topic of the relay. `done`, which may be empty, learns whether it was taken: at once if the
  // topic's name is no such name, later otherwise.
  static void push(Http& http, const std::string& topic, const std::string& title, const std::string& body,
                   std::function<void(bool sent)> done = {});

  // What the test button of the settings does: keeps the topic and sends a first alert to it. `show` gets the outcome
  // in words, at once if the name is none.
  static void test(Engine& engine, Http& http, const std::string& topic,
                   std::function<void(const std::string& outcome)> show);

  // 1 to 64 characters, each a letter or a number of any script, "-" or "_".
  static bool validTopic(const std::string& text);

  // A system sound; "Glass" if there is none by that name.
  static void play(Notices& notices, const std::string& name);

 private:
  void finished(const std::string& name, double minutes, bool gone);

  Engine& engine_;
  Http& http_;
};

}  // namespace tovi

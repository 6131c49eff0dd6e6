#include "platform/tasks/WorkerThreads.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <list>
#include <map>
#include <system_error>
#include <utility>

#include "platform/world/AllSignalsBlocked.h"

namespace TesselServer {

// What is to be done, and how many threads do it.
struct WorkerThreads::Shelf {
  struct Piece {
    Workers::Kind kind;
    const void* owner;
    std::function<void()> work;
  };

  // A thread's life.
  void Serve() {
    std::unique_lock lock(mutex);
    while (!isOver) {
      const auto next = FirstAllowed();
      if (next == pieces.end()) {
        ++idle;
        changed.wait(lock);
        --idle;
        continue;
      }
      std::list<Piece> mine;
      Take(next, mine);
      std::int32_t& atWork = AtWork(mine.front().kind);
      ++atWork;
      lock.unlock();
      mine.front().work();
      mine.clear();  // what it holds goes without the lock
      lock.lock();
      --atWork;
      changed.notify_one();  // another piece of this kind may be allowed now
    }
    living.erase(std::find(living.begin(), living.end(), std::this_thread::get_id()));
    changed.notify_all();
  }

  // Moves a piece to the end of another list.
  void Take(std::list<Piece>::iterator piece, std::list<Piece>& to) {
    placeOf.erase(piece->owner);
    to.splice(to.end(), pieces, piece);
  }

  std::int32_t& AtWork(Workers::Kind kind) { return atWorkOf[static_cast<std::size_t>(kind)]; }

  std::list<Piece>::iterator FirstAllowed() {
    return std::find_if(pieces.begin(), pieces.end(),
                        [this](const Piece& piece) { return AtWork(piece.kind) < Workers::kMaxOfAKind; });
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::list<Piece> pieces;
  std::map<const void*, std::list<Piece>::iterator> placeOf;  // each owner's one, so that thousands may leave at once
  std::array<std::int32_t, Workers::kKinds> atWorkOf{};
  std::size_t idle = 0;
  std::vector<std::thread::id> living;
  bool isOver = false;
};

namespace {

struct ThreadsOfTheProcess {
  std::mutex mutex;
  std::weak_ptr<WorkerThreads> threads;
};

// Never destroyed: a host may take its loop down in a destructor that runs after main.
ThreadsOfTheProcess& OfTheProcess() {
  static auto* const shared = new ThreadsOfTheProcess;
  return *shared;
}

}  // namespace

std::shared_ptr<WorkerThreads> WorkerThreads::Shared() {
  ThreadsOfTheProcess& shared = OfTheProcess();
  const std::scoped_lock lock(shared.mutex);
  auto threads = shared.threads.lock();
  if (!threads) shared.threads = threads = std::make_shared<WorkerThreads>();
  return threads;
}

void WorkerThreads::Share(const std::shared_ptr<WorkerThreads>& threads) {
  ThreadsOfTheProcess& shared = OfTheProcess();
  const std::scoped_lock lock(shared.mutex);
  shared.threads = threads;
}

WorkerThreads::WorkerThreads() : shelf_(std::make_shared<Shelf>()) {}

WorkerThreads::~WorkerThreads() {
  std::list<Shelf::Piece> dropped;
  std::unique_lock lock(shelf_->mutex);
  shelf_->isOver = true;
  dropped.swap(shelf_->pieces);
  shelf_->placeOf.clear();
  shelf_->changed.notify_all();
  shelf_->changed.wait_for(lock, patience_, [this] { return shelf_->living.empty(); });
  const auto heldUp = shelf_->living;
  lock.unlock();
  for (std::thread& thread : threads_) {
    const bool isHeldUp = std::find(heldUp.begin(), heldUp.end(), thread.get_id()) != heldUp.end();
    isHeldUp ? thread.detach() : thread.join();
  }
}

bool WorkerThreads::Add(Workers::Kind kind, const void* owner, std::function<void()> work, std::int32_t most) {
  std::list<Shelf::Piece> piece;
  piece.push_back({kind, owner, std::move(work)});
  const std::scoped_lock ownLock(mutex_);
  if (!HasThread(most)) return false;
  const std::scoped_lock lock(shelf_->mutex);
  shelf_->placeOf.emplace(owner, piece.begin());
  shelf_->pieces.splice(shelf_->pieces.end(), piece);
  shelf_->changed.notify_one();
  return true;
}

void WorkerThreads::WaitForNone() {
  const std::scoped_lock lock(mutex_);
  patience_ = {};
}

void WorkerThreads::Withdraw(const void* owner) noexcept {
  std::list<Shelf::Piece> withdrawn;  // declared first: what it holds goes without the lock
  const std::scoped_lock lock(shelf_->mutex);
  const auto place = shelf_->placeOf.find(owner);
  if (place != shelf_->placeOf.end()) shelf_->Take(place->second, withdrawn);
}

// Makes one more where it is of use.
bool WorkerThreads::HasThread(std::int32_t most) {
  {
    const std::scoped_lock lock(shelf_->mutex);
    if (shelf_->idle > shelf_->pieces.size()) return true;
  }
  if (threads_.size() >= static_cast<std::size_t>(most)) return !threads_.empty();
  try {
    const AllSignalsBlocked quiet;  // the thread inherits it
    threads_.reserve(Workers::kMaxThreads);
    const std::scoped_lock lock(shelf_->mutex);
    shelf_->living.reserve(Workers::kMaxThreads);
    threads_.emplace_back([shelf = shelf_] { shelf->Serve(); });
    shelf_->living.push_back(threads_.back().get_id());
  } catch (const std::system_error&) {
    // the system gives no more threads: those that there are will do
  }
  return !threads_.empty();
}

}  // namespace TesselServer

#include "mox/Entity.h"

#include "mox/KeepAlive.h"
#include "mox/Trace.h"

namespace Mox {

/// One walk over the notifiees. It stands in the entity's list of rounds while it runs, so that a
/// notifiee that leaves can step every walk over itself.
class NotifieeRound {
 public:
  explicit NotifieeRound(Entity& entity)
      : list_(*entity.notifiees_),
        outer_(list_.innermost),
        next_(list_.first),
        limit_(list_.attachments) {
    list_.innermost = this;
  }
  ~NotifieeRound() { list_.innermost = outer_; }
  NotifieeRound(NotifieeRound const&) = delete;
  NotifieeRound& operator=(NotifieeRound const&) = delete;

  Notifiee* next() {
    Notifiee* const n = next_;
    // Attachments are numbered in the order of the list, so everything behind this one came later, too.
    if (!n || n->attached_ > limit_) return nullptr;  // came after this round began
    // The step is made before the call: the notifiee may detach or destroy itself within it.
    next_ = n->next_;
    return n;
  }

  static void stepOver(Entity::List& list, Notifiee* leaving) {
    for (NotifieeRound* r = list.innermost; r; r = r->outer_)
      if (r->next_ == leaving) r->next_ = leaving->next_;
  }

 private:
  Entity::List& list_;
  NotifieeRound* outer_;
  Notifiee* next_;
  uint64_t limit_;
};

Notifiee::~Notifiee() { notifierIs(nullptr); }

void Notifiee::notifierIs(Entity* entity) {
  if (entity == notifier_) return;
  // What may fail for want of memory comes before anything is changed.
  if (entity && !entity->notifiees_) entity->notifiees_ = std::make_unique<Entity::List>();
  if (notifier_) {
    Entity::List& list = *notifier_->notifiees_;
    NotifieeRound::stepOver(list, this);
    (previous_ ? previous_->next_ : list.first) = next_;
    (next_ ? next_->previous_ : list.last) = previous_;
    previous_ = next_ = nullptr;
  }
  notifier_ = entity;
  if (entity) {
    Entity::List& list = *entity->notifiees_;
    previous_ = list.last;
    (list.last ? list.last->next_ : list.first) = this;
    list.last = this;
    attached_ = ++list.attachments;
  }
}

Entity::~Entity() {
  if (!notifiees_) return;
  // Whoever watches is left detached, and not with a reference to what is gone.
  while (notifiees_->first) notifiees_->first->notifierIs(nullptr);
}

void Entity::notifyAll(std::function<void(Notifiee&)> const& call) {
  // An entity that no Ptr owns (one on the stack) is kept by its scope instead.
  auto const alive = keepAlive(this);
  NotifieeRound round(*this);
  while (Notifiee* n = round.next()) {
    try {
      call(*n);
    } catch (std::exception const& e) {
      if (auto line = moxTrace().line(0)) line << fwkType() << ": a handler threw: " << e.what();
    } catch (...) {
      if (auto line = moxTrace().line(0)) line << fwkType() << ": a handler threw";
    }
  }
}

void Entity::notifyDeleted() const {
  if (notifiees_)
    const_cast<Entity*>(this)->notifyAll(
        [](Notifiee& n) { n.onDeleted(); });  // no attribute changes
}

AttributeTable const& Entity::attributeTable() const {
  static AttributeTable const none;
  return none;
}

std::string Entity::attributeText(std::string_view name) const {
  for (Attribute const& a : attributeTable())
    if (a.name == name) return a.text(*this);
  throw RangeError(std::string(fwkType()) + " has no attribute " + std::string(name));
}

}  // namespace Mox

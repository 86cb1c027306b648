// The consumers of metadata items: a read streams every item, in table
// order, into a tree of these, each deciding whether it takes an item.
// Module-internal; the disk file builds one tree per read.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vhdx/metadata/metadata_descriptor.h"
#include "vhdx/metadata/metadata_policy.h"

namespace Vhdx {

class MetadataConsumer {
 public:
  MetadataConsumer() = default;
  MetadataConsumer(const MetadataConsumer&) = delete;
  MetadataConsumer& operator=(const MetadataConsumer&) = delete;
  virtual ~MetadataConsumer() = default;

  // `data` holds `size` bytes and lives only for the call.
  virtual void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
                       std::uint32_t size) = 0;
};

class SelectiveMetadataConsumer : public MetadataConsumer {
 public:
  virtual bool CanConsume(const MetadataDescriptor& descriptor) const = 0;
};

class MetadataConsumerComposite : public SelectiveMetadataConsumer {
 public:
  virtual void Add(std::shared_ptr<SelectiveMetadataConsumer> consumer) = 0;
};

// Hands an item to every member that accepts it, in the order added; an
// item no member accepts goes to the policy.
class DispatchingComposite : public MetadataConsumerComposite {
 public:
  explicit DispatchingComposite(std::unique_ptr<UnhandledMetadataPolicy> policy)
      : policy_(std::move(policy)) {}

  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override;
  bool CanConsume(const MetadataDescriptor& descriptor) const override;
  void Add(std::shared_ptr<SelectiveMetadataConsumer> consumer) override;

 private:
  std::unique_ptr<UnhandledMetadataPolicy> policy_;
  std::vector<std::shared_ptr<SelectiveMetadataConsumer>> consumers_;
};

// Lets a caller's consumer, which the tree must not own, sit in the tree.
class MetadataConsumerDelegate : public SelectiveMetadataConsumer {
 public:
  // `inner` must outlive the delegate.
  explicit MetadataConsumerDelegate(SelectiveMetadataConsumer& inner) : inner_(inner) {}

  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override {
    inner_.Consume(descriptor, data, size);
  }
  bool CanConsume(const MetadataDescriptor& descriptor) const override {
    return inner_.CanConsume(descriptor);
  }

 private:
  SelectiveMetadataConsumer& inner_;
};

// Lets the wrapped consumer take one item and refuses a second one with
// 0x3C0026. It keeps accepting what the wrapped one accepts, so that the
// duplicate is refused here rather than passed over by the policy.
class OnceMetadataConsumer : public SelectiveMetadataConsumer {
 public:
  explicit OnceMetadataConsumer(std::shared_ptr<SelectiveMetadataConsumer> wrapped);

  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override {
    state_->Consume(descriptor, data, size);
  }
  bool CanConsume(const MetadataDescriptor& descriptor) const override {
    return state_->CanConsume(descriptor);
  }

  class StateBase : public SelectiveMetadataConsumer {
   public:
    explicit StateBase(SelectiveMetadataConsumer& wrapped) : wrapped_(wrapped) {}
    bool CanConsume(const MetadataDescriptor& descriptor) const override {
      return wrapped_.CanConsume(descriptor);
    }

   protected:
    SelectiveMetadataConsumer& wrapped_;
  };

  class InitialState : public StateBase {
   public:
    InitialState(SelectiveMetadataConsumer& wrapped, OnceMetadataConsumer& owner)
        : StateBase(wrapped), owner_(owner) {}
    void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
                 std::uint32_t size) override;

   private:
    OnceMetadataConsumer& owner_;
  };

  class MetaHasBeenSetState : public StateBase {
   public:
    using StateBase::StateBase;
    void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
                 std::uint32_t size) override;
  };

 private:
  std::shared_ptr<SelectiveMetadataConsumer> wrapped_;
  std::unique_ptr<StateBase> state_;
};

// Takes the Page 83 Data item and does nothing with it: the consumer of
// opens that want no metadata, without which that required item would trip
// the policy.
class OnlyCheckingMetadataConsumer : public SelectiveMetadataConsumer {
 public:
  void Consume(const MetadataDescriptor&, const std::uint8_t*, std::uint32_t) override {}
  bool CanConsume(const MetadataDescriptor& descriptor) const override;
};

// Hides the listed items from the inner consumer.
class FilteringMetadataConsumer : public MetadataConsumer {
 public:
  // `inner` must outlive this one.
  FilteringMetadataConsumer(MetadataConsumer& inner, MetadataDescriptorList hidden)
      : inner_(inner), hidden_(std::move(hidden)) {}

  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override;

 private:
  MetadataConsumer& inner_;
  MetadataDescriptorList hidden_;
};

// Refuses the listed items with 0x3C0037 and passes all others on: what a
// caller may not set must fail before anything of it is written.
class ThrowingSelectiveMetadataConsumer : public SelectiveMetadataConsumer {
 public:
  // `inner` must outlive this one.
  ThrowingSelectiveMetadataConsumer(SelectiveMetadataConsumer& inner,
                                    MetadataDescriptorList refused)
      : inner_(inner), refused_(std::move(refused)) {}

  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override;
  bool CanConsume(const MetadataDescriptor& descriptor) const override;

 private:
  SelectiveMetadataConsumer& inner_;
  MetadataDescriptorList refused_;
};

}  // namespace Vhdx

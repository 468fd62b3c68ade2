#include "MSources.h"

#include <unordered_set>
#include <vector>

#include "engine/MRegistry.h"

namespace quorvel {

TDataPtr TAbstractDataSource::getData() { return m_OutputPin ? m_OutputPin->getData() : nullptr; }

void TAbstractDataSource::setData(const TDataPtr& data) {
  if (!m_OutputPin) throw TFlowError("setData(): the source has no output pin");
  m_OutputPin->setData(data);
}

void TAbstractDataSource::ensureDataExists() {
  // Classes without a default raise, whatever the pin holds.
  TDataPtr value = makeDefault();
  if (!value) throw TFlowError("ensureDataExists() not implemented for this class");
  if (!getData()) setData(value);
}

void TAbstractIdentityProcessor::postCreate() {
  m_InputPin = addInputPin<TAbstractData>("in");
  m_OutputPin = addOutputPin<TAbstractData>("out");
}

TDataPtr TAbstractIdentityProcessor::getData() {
  return makeData("TStringData", m_InputPin->m_Name + "|" + m_OutputPin->m_Name);
}

void TAbstractIdentityProcessor::setData(const TDataPtr& data) {
  if (!data || data->getClassName() != "TStringData")
    throw TFlowError("setData(): an identity processor takes its pin names as a TStringData");
  const std::string names = data->stringify();
  const size_t bar = names.find('|');
  if (bar == std::string::npos) throw TFlowError("setData(): pin names must be given as 'in|out'");
  m_InputPin->m_Name = names.substr(0, bar);
  m_OutputPin->m_Name = names.substr(bar + 1);
}

void TAbstractIdentityProcessor::process() {
  if (m_InputPin->getData() != m_OutputPin->getData()) m_OutputPin->setData(m_InputPin->getData());
  resetPins({m_InputPin});
}


namespace {

// Calls f with each processor whose output pin feeds the net of `pin`,
// across ports, until f answers false.
template <class F>
void forEachFeeder(const TPinPtr& pin, F f) {
  if (!pin) return;
  std::vector<TAbstractPin*> queue{pin.get()};
  std::unordered_set<TAbstractPin*> seen{pin.get()};
  for (size_t head = 0; head < queue.size(); ++head) {
    TAbstractPin* p = queue[head];
    for (const auto& c : p->m_Connectors) {
      TAbstractPin* other = c->getOtherPin(p);
      if (!other || !seen.insert(other).second) continue;
      TAbstractProcessor* proc = other->m_Processor.get();
      if (!proc || other->isInputPin()) continue;
      if (proc->isIdentity()) {
        // Through the port: on from its input pin.
        for (const auto& in : proc->m_InputPins)
          if (seen.insert(in.get()).second) queue.push_back(in.get());
        continue;
      }
      if (!f(other->m_Processor)) return;
    }
  }
}

}  // namespace

TProcessorPtr findFeedingProcessor(const TPinPtr& pin) {
  TProcessorPtr found;
  bool several = false;
  forEachFeeder(pin, [&](const TProcessorPtr& p) {
    if (found && found != p) several = true;
    found = p;
    return !several;
  });
  return several ? nullptr : found;
}

TProcessorPtr findFeedingSource(const TPinPtr& pin) {
  TProcessorPtr found;
  forEachFeeder(pin, [&](const TProcessorPtr& p) {
    if (p->isDataSource()) found = p;
    return !found;
  });
  return found;
}

void registerSourceClasses() { TProcessorRegistry::instance().add<TAbstractIdentityProcessor>(); }

}  // namespace quorvel

// The lines of what looks at a line and its cost: doctor, scan, plan, why, exchange.
#include <cmath>

#include "host/show/JsonLines.h"
#include "host/show/JsonText.h"

namespace ostrel::host {

std::string DoctorJson(const std::string& channel, const MeterConfig* meter, const Diagnosis& diagnosis) {
  Json json = Event("doctor");
  json["channel"] = channel;
  if (meter != nullptr) {
    json["meter"] = meter->name;
    json["address"] = meter->address;
  }
  json["finding"] = FindingName(diagnosis.finding);
  json["text"] = Sentence(diagnosis);
  if (diagnosis.asked == 0) return Dump(json);
  json["serial"] = diagnosis.serial;
  json["type"] = diagnosis.type;
  json["clock_offset_s"] = diagnosis.clockOffsetS;
  json["turnaround_median_ms"] = diagnosis.medianMs;
  json["turnaround_worst_ms"] = diagnosis.worstMs;
  json["asked"] = diagnosis.asked;
  json["lost"] = diagnosis.lost;
  return Dump(json);
}

std::string ScanJson(const ChannelConfig& channel, const ScanResult& result) {
  Json json = Event("scan");
  json["channel"] = channel.port;
  json["device"] = channel.device;
  json["baud"] = result.baud;
  json["parity"] = result.parity;
  json["meters"] = Json::array();
  for (const FoundMeter& meter : result.meters) {
    json["meters"].push_back({{"address", meter.address}, {"type", meter.type ? Json(*meter.type) : Json(nullptr)}});
  }
  return Dump(json);
}

namespace {

Json CostJson(const Cost& cost) {
  return {{"requests", cost.requests},
          {"repeats", cost.repeats},
          {"sent_bytes", cost.sentBytes},
          {"received_bytes", cost.receivedBytes},
          {"seconds", std::round(cost.seconds * 1000) / 1000}};
}

}  // namespace

std::string PlanJson(const ChannelConfig& channel, const PassPlan& plan, const Cost* measured) {
  Json json = Event("plan");
  json["channel"] = channel.port;
  json["baud"] = channel.baud;
  json["poll_period_s"] = channel.pollPeriodSeconds;
  json["pass"] = CostJson(plan.cost);
  json["measured"] = measured != nullptr ? CostJson(*measured) : Json(nullptr);
  json["meters"] = Json::array();
  for (const MeterPlan& meter : plan.meters) {
    Json families = Json::array();
    for (const FamilyCost& family : meter.families)
      families.push_back({{"family", family.family}, {"cost", CostJson(family.cost)}});
    json["meters"].push_back(
        {{"meter", meter.meter}, {"address", meter.address}, {"cost", CostJson(meter.cost)}, {"families", families}});
  }
  return Dump(json);
}

std::string WhyJson(const std::string& meter, const TagDefinition& tag, const WhyReport& why) {
  Json json = Event("why");
  json["meter"] = meter;
  json["id"] = tag.id;
  json["tag"] = tag.name;
  json["request"] = why.request;
  json["answer"] = why.answer;
  json["bytes"] = why.bytes;
  json["formula"] = why.formula;
  json["factors"] = why.factors;
  json["reason"] = why.reason;
  return Dump(json);
}

std::string ExchangeJson(const std::string& channel, const std::string& request, const std::string& answer, bool checkRight) {
  Json json = Event("exchange");
  json["channel"] = channel;
  json["request"] = request;
  json["answer"] = answer;
  json["check"] = checkRight;
  return Dump(json);
}

}  // namespace ostrel::host

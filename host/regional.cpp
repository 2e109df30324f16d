// regional.cpp - regional settings of the reference host (fixed French and
// English data until the locale-backed version lands).
#include "services.h"

namespace kp::host {

namespace {
const kp_regional_settings kFrench = {
    {u"lundi", u"mardi", u"mercredi", u"jeudi", u"vendredi", u"samedi", u"dimanche"},
    {u"janvier", u"février", u"mars", u"avril", u"mai", u"juin", u"juillet", u"août", u"septembre", u"octobre",
     u"novembre", u"décembre"},
    u"dd/MM/yyyy",
    u"HH:mm:ss",
    u',',
    nullptr};
const kp_regional_settings kEnglish = {
    {u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday", u"Sunday"},
    {u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August", u"September", u"October",
     u"November", u"December"},
    u"M/d/yyyy",
    u"h:mm:ss tt",
    u'.',
    nullptr};
} // namespace

const kp_regional_settings* regional_settings(int32_t language) { return language == 0 ? &kFrench : &kEnglish; }

} // namespace kp::host

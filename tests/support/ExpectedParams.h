#pragma once

/// The parameters of every algorithm type, as "key control default minimum maximum [extras] : label" with "-" for an
/// empty text. Extras: edit (0 unless given), step (0.1 unless given), rule (visibility) and list (choices).
struct ExpectedParams
{
    const char *type;
    const char *dependName;
    const char *rows;
};

constexpr ExpectedParams kExpectedParams[]{
    {"SpectrumOnline", "", R"(enable flag 1 - - : Enable
time real 2 1 10 : Accumulation time, sec
step real 0.5 0.1 2 : Update time, sec
hann real 50 0 50 : Henning Window
artefact flag 0 - - : Find artefacts
lfzsfz real 3.5 0.1 250 : lfzsfz threshold
hfzifz real 0.7 0.1 250 : hfzifz threshold
smooth flag 1 - - : Use smoothing
square flag 1 - - : Use power square)"},
    {"SpectrumNorm", "", R"(channel channels - - - : Read channels
time real 3 1 10 : Accumulation time, sec
step real 0.5 0.1 2 : Update time, sec
hann real 50 0 50 : Henning Window
max_freq real 14 0.1 1000 : Maximum frequency, Hz
min_freq real 8 0.1 1000 : Minimum frequency, Hz
min_thres real 1 0.01 2500 step=0.01 rule=calc_mode?show:hide : Minimum threshold, µV
max_thres real 100 1 2500 rule=calc_mode?show:hide : Maximum threshold, µV
p_min_thres real 1 0.01 100 step=0.01 rule=calc_mode?hide:show : Minimum threshold, %
p_max_thres real 100 1 100 rule=calc_mode?hide:show : Maximum threshold, %
r_color color #C3D6F3 - - : Display color
average flag 0 - - : Use average
artefact flag 0 - - : Find artefacts
lfzsfz real 3.5 0.1 250 : lfzsfz threshold
hfzifz real 0.7 0.1 250 : hfzifz threshold
square flag 0 - - : Use power square
calc_mode flag 0 - - : Relative power of rhythm
visible flag 1 - - : Show)"},
    {"DependSpectrumNorm", "", R"(max_freq real 14 1 1000 : Maximum frequency, Hz
min_freq real 8 1 1000 : Minimum frequency, Hz
min_thres real 1 0.1 250 : Minimum threshold
max_thres real 100 1 250 : Maximum threshold
r_color color #C3D6F3 - - : Display color
average flag 1 - - : Use average
calc_mode choice 0 0 4 list=Average;Integration;Max;Summa;Power : Calculation mode
frequency_calc choice 0 0 1 list=Average;Max : Frequency calculation mode)"},
    {"ElectroCardiogram", "", R"(channel integer 1 1 1000 edit=2 step=1 : Use channel
hp_freq real 0.2 0 50 : High pass filter, Hz
lp_freq real 40 0 70 : Low pass filter, Hz
bpmMax real 150 0.1 1000 : Maximum bpm
bpmMin real 30 0.1 1000 : Minimum bpm
ampMax real 4 0.01 1000 step=0.01 : Maximum amplitude
ampMin real 0.25 0.01 1000 step=0.01 : Minimum amplitude)"},
    {"AsymmetryCoeff", "SpectrumOnline", R"(channel1 channels - - - : Read channels 1
channel2 channels - - - : Read channels 2
max_freq real 14 0.1 1000 : Maximum frequency, Hz
min_freq real 8 0.1 1000 : Minimum frequency, Hz
r_color color #C3D6F3 - - : Display color
visible flag 1 - - : Show)"},
    {"Math", "", R"(r_color color #C3D6F3 - - : Display color
visible flag 1 - - : Show
formula text - - - edit=1 : Calculation formula
depend text - - - edit=2 : Used rhythms)"},
    {"CGN", "", ""},
};

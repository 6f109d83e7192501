#pragma once

#include <QtGlobal>

/// The client's commands by number. Compatibility: two of the numbers stand for two
/// commands each, because programs in the field store them.
enum request_type : quint32 {
    request_none = 0,
    request_get_info = 1,
    request_get_data = 2,
    request_get_states = 3,
    request_get_last_state = 4,
    request_get_spectrum = 5,
    request_get_last_rhythm = 6,
    request_write_state_file = 7,
    request_remove_state_file = 8,
    request_get_halvin_status = 11,
    request_set_current_profile = 12,
    request_get_profile_list = 13,
    request_start_write_file = 14,
    request_stop_write_file = 15,
    request_discover_devices = 16,
    request_get_device_parametrs = 17,
    request_set_device_parametrs = 18,
    request_start_device = 19,
    request_stop_device = 20,
    request_get_montage_list = 21,
    request_get_montage_info = 22,
    request_set_montage_name = 23,
    request_add_new_profile = 24,
    request_remove_profile = 25,
    request_get_algorithms = 26,
    request_remove_all_records = 26,
    request_set_algorithm_params = 28,
    request_remove_algorithm = 29,
    request_add_new_algorithm = 30,
    request_get_algorithm_params = 30,
    request_set_state = 31
};

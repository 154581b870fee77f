#pragma once

// Numbers that the service sends to the HMI. The HMI defines their meaning.

enum MEDIA_TYPE : int {
    MEDIA_TYPE_1 = 1,
    MEDIA_TYPE_2 = 2,
    MEDIA_TYPE_3 = 3,
    MEDIA_TYPE_BT_AUDIO = 4,
};

enum MEDIA_PLAY_ACTION : int {
    MEDIA_PLAY_ACTION_1 = 1,
    MEDIA_PLAY_ACTION_2 = 2,
    MEDIA_PLAY_ACTION_3 = 3,
    MEDIA_PLAY_ACTION_4 = 4,
};

enum AUTO_TEST_PAGE_TYPE : unsigned int {};

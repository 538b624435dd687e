include $(sort $(wildcard $(BR2_EXTERNAL_QEL_PATH)/package/*/*.mk))

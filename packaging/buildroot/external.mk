include $(sort $(wildcard $(BR2_EXTERNAL_IMG_DEPLOY_PATH)/package/*/*.mk))

# The ZEV calls go through the test's wrappers, which pause the allocation count.
target_link_options(${target} PRIVATE
    -Wl,--wrap=ZEV_SM2_GenerateAgreementDataWithECC -Wl,--wrap=ZEV_SM2_GenerateKeyWithECC
    -Wl,--wrap=ZEV_SM3 -Wl,--wrap=ZEV_HMAC_SM3)

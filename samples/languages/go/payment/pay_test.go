package payment_test

import (
	"testing"

	"example.com/shop/payment"
)

func TestFee(t *testing.T) {
	if payment.Fee() != 1 {
		t.Fatal("fee")
	}
}
